#pragma once

#include <vector>

#include "platform/UUID.h"

namespace wrixel2::platform {
class UserDefaults;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// Identifiers of the devices seen before, kept in the user defaults as texts under
/// "storedPeripherals", each once, in the order first seen.
class YMSCBStoredPeripherals {
 public:
  explicit YMSCBStoredPeripherals(platform::UserDefaults& userDefaults)
      : userDefaults_(&userDefaults) {}

  /// Stores an empty list if there is none.
  void initializeStorage();
  /// In stored order; entries that are not the text of an identifier are skipped.
  std::vector<platform::UUID> genIdentifiers() const;
  /// Ignores the identifier of all zeros, which stands for none.
  void saveUUID(const platform::UUID& identifier);
  void deleteUUID(const platform::UUID& identifier);

 private:
  platform::UserDefaults* userDefaults_;
};

}  // namespace wrixel2::bleobjects
