#pragma once

#include <cstddef>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "platform/UUID.h"
#include "platform/Value.h"

namespace wrixel2::platform {
class UserDefaults;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// Identifiers of devices, kept in the user defaults as texts, each once, in the order first
/// stored (where there is a limit, in the order last stored): under "storedPeripherals" those of
/// the devices seen before.
class YMSCBStoredPeripherals {
 public:
  /// Beyond the limit the oldest go.
  explicit YMSCBStoredPeripherals(platform::UserDefaults& userDefaults,
                                  std::string key = "storedPeripherals",
                                  std::size_t limit = std::numeric_limits<std::size_t>::max())
      : userDefaults_(&userDefaults), key_(std::move(key)), limit_(limit) {}

  /// Stores an empty list if there is none.
  void initializeStorage();
  /// In stored order; entries that are not the text of an identifier are skipped.
  std::vector<platform::UUID> genIdentifiers() const;
  /// Ignores the identifier of all zeros, which stands for none.
  void saveUUID(const platform::UUID& identifier);
  void deleteUUID(const platform::UUID& identifier);

 private:
  void store(platform::Array list);

  platform::UserDefaults* userDefaults_;
  std::string key_;
  std::size_t limit_;
};

}  // namespace wrixel2::bleobjects
