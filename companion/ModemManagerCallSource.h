#pragma once

#include <map>
#include <string>

#include "companion/BusCallSource.h"

namespace wrixel2::companion {

/// The calls of ModemManager's modems (system bus).
class ModemManagerCallSource final : public BusCallSource {
 public:
  ModemManagerCallSource(platform::linux::BusConnection& systemBus, platform::Log& log);

  void hangUp(const std::string& call) override;

 private:
  void askForCalls() override;
  std::optional<RingingCall> ringingCall(const platform::Dictionary& properties) const override;
  void modemAdded(const std::string& modem, const platform::Value& interfaces);
  void modemRemoved(const std::string& modem);
  void callAdded(const std::string& modem, const std::string& call);
  void callDeleted(const std::string& call);

  /// The modem of each call that has been added and not deleted.
  std::map<std::string, std::string> modems_;
};

}  // namespace wrixel2::companion
