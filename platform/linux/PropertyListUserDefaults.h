#pragma once

#include <string>

#include "platform/Log.h"
#include "platform/UserDefaults.h"

namespace wrixel2::platform {
class FileManager;
class PropertyLists;
}  // namespace wrixel2::platform

namespace wrixel2::platform::linux {

/// User defaults in one property list. A file that does not load is a warning: it is kept beside as
/// "….damaged", and the defaults start empty.
class PropertyListUserDefaults final : public UserDefaults {
 public:
  PropertyListUserDefaults(PropertyLists& propertyLists, FileManager& files, Log& log,
                           std::string path);

  std::optional<Value> objectForKey(std::string_view key) const override;
  void setObjectForKey(std::string_view key, Value value) override;
  void synchronize() override;

 private:
  PropertyLists& propertyLists_;
  Logger logger_;
  std::string path_;
  Dictionary values_;
  bool hasChanged_ = false;
};

}  // namespace wrixel2::platform::linux
