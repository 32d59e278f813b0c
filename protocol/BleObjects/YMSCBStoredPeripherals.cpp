#include "protocol/BleObjects/YMSCBStoredPeripherals.h"

#include <algorithm>
#include <string>
#include <utility>

#include "platform/UserDefaults.h"
#include "platform/Value.h"

namespace wrixel2::bleobjects {
namespace {

/// With hyphens. The shorter forms of a UUID stand for attributes, not for devices.
constexpr std::size_t kIdentifierTextLength = 36;

}  // namespace

void YMSCBStoredPeripherals::store(platform::Array list) {
  userDefaults_->setObjectForKey(key_, std::move(list));
  userDefaults_->synchronize();
}

void YMSCBStoredPeripherals::initializeStorage() {
  if (!userDefaults_->arrayForKey(key_)) {
    store({});
  }
}

std::vector<platform::UUID> YMSCBStoredPeripherals::genIdentifiers() const {
  std::vector<platform::UUID> identifiers;
  const auto list = userDefaults_->arrayForKey(key_);
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
  auto list = userDefaults_->arrayForKey(key_).value_or(platform::Array());
  const bool isLimited = limit_ != std::numeric_limits<std::size_t>::max();
  if (isLimited && !list.empty() && list.back() == text) {
    return;
  }
  if (isLimited) {
    std::erase(list, text);  // it becomes the latest
  }
  if (std::find(list.begin(), list.end(), text) == list.end()) {
    list.push_back(text);
    list.erase(list.begin(),
               list.end() - static_cast<std::ptrdiff_t>(std::min(list.size(), limit_)));
  }
  store(std::move(list));
}

void YMSCBStoredPeripherals::deleteUUID(const platform::UUID& identifier) {
  auto list = userDefaults_->arrayForKey(key_).value_or(platform::Array());
  std::erase(list, platform::Value(identifier.longText()));
  store(std::move(list));
}

}  // namespace wrixel2::bleobjects
