#include "protocol/BleObjects/YMSCBStoredPeripherals.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include "platform/UserDefaults.h"
#include "platform/Value.h"

namespace wrixel2::bleobjects {
namespace {

constexpr std::string_view kStoredPeripherals = "storedPeripherals";
/// With hyphens. The shorter forms of a UUID stand for attributes, not for devices.
constexpr std::size_t kIdentifierTextLength = 36;

void store(platform::UserDefaults& userDefaults, platform::Array list) {
  userDefaults.setObjectForKey(kStoredPeripherals, std::move(list));
  userDefaults.synchronize();
}

}  // namespace

void YMSCBStoredPeripherals::initializeStorage() {
  if (!userDefaults_->arrayForKey(kStoredPeripherals)) {
    store(*userDefaults_, {});
  }
}

std::vector<platform::UUID> YMSCBStoredPeripherals::genIdentifiers() const {
  std::vector<platform::UUID> identifiers;
  const auto list = userDefaults_->arrayForKey(kStoredPeripherals);
  for (const auto& entry : list.value_or(platform::Array())) {
    const auto* const text = entry.text();
    if (text == nullptr || text->size() != kIdentifierTextLength) {
      continue;
    }
    if (const auto identifier = platform::UUID::fromText(*text)) {
      identifiers.push_back(*identifier);
    }
  }
  return identifiers;
}

void YMSCBStoredPeripherals::saveUUID(const platform::UUID& identifier) {
  if (identifier == platform::UUID()) {
    return;
  }
  const platform::Value text(identifier.longText());
  auto list = userDefaults_->arrayForKey(kStoredPeripherals).value_or(platform::Array());
  if (std::find(list.begin(), list.end(), text) == list.end()) {
    list.push_back(text);
  }
  store(*userDefaults_, std::move(list));
}

void YMSCBStoredPeripherals::deleteUUID(const platform::UUID& identifier) {
  auto list = userDefaults_->arrayForKey(kStoredPeripherals).value_or(platform::Array());
  std::erase(list, platform::Value(identifier.longText()));
  store(*userDefaults_, std::move(list));
}

}  // namespace wrixel2::bleobjects
