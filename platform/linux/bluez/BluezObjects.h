#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Value.h"

namespace wrixel2::platform::bluez {

/// bluetoothd's objects as they were last announced: paths with interfaces with properties.
class BluezObjects {
 public:
  /// The reply of GetManagedObjects, in place of everything known.
  void replace(const Dictionary& managedObjects);
  void add(const std::string& path, const Dictionary& interfaces);
  void remove(const std::string& path, const Array& interfaces);
  /// False, and nothing is changed, for an object or interface that is not known.
  bool change(const std::string& path, std::string_view interface, const Dictionary& changed,
              const Array& invalidated);
  void clear() { objects_.clear(); }

  /// None for an object or interface that is not known. Valid until the next change.
  const Dictionary* properties(std::string_view path, std::string_view interface) const;
  /// Paths of the objects with the interface below (not at) the path, in the order of the text;
  /// below a GATT object that is the order of handles.
  std::vector<std::string> pathsBelow(std::string_view path, std::string_view interface) const;

 private:
  using Interfaces = std::map<std::string, Dictionary, std::less<>>;
  std::map<std::string, Interfaces, std::less<>> objects_;
};

}  // namespace wrixel2::platform::bluez
