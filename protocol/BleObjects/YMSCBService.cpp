#include "protocol/BleObjects/YMSCBService.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/Peripheral.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"

namespace wrixel2::bleobjects {
namespace {

platform::UUID serviceUUID(const yms_u128_t& base, ServiceOffset offset) {
  return base == yms_u128_t{} ? YMSCBUtils::createCBUUIDWithShortNumber(offset.value)
                              : YMSCBUtils::createCBUUIDWithIntOffset(base, offset.value);
}

platform::UUID serviceUUID(const yms_u128_t& base, ServiceBLEOffset offset) {
  return base == yms_u128_t{} ? YMSCBUtils::createCBUUIDWithShortNumber(offset.value)
                              : YMSCBUtils::createCBUUIDWithIntBLEOffset(base, offset.value);
}

}  // namespace

YMSCBService::YMSCBService(const platform::Platform& platform, std::string name,
                           std::weak_ptr<YMSCBPeripheral> parent, std::uint64_t baseHi,
                           std::uint64_t baseLo, ServiceOffset serviceOffset)
    : YMSCBService(platform, std::move(name), std::move(parent), {baseHi, baseLo},
                   serviceUUID({baseHi, baseLo}, serviceOffset)) {}

YMSCBService::YMSCBService(const platform::Platform& platform, std::string name,
                           std::weak_ptr<YMSCBPeripheral> parent, std::uint64_t baseHi,
                           std::uint64_t baseLo, ServiceBLEOffset serviceOffset)
    : YMSCBService(platform, std::move(name), std::move(parent), {baseHi, baseLo},
                   serviceUUID({baseHi, baseLo}, serviceOffset)) {}

YMSCBService::YMSCBService(const platform::Platform& platform, std::string name,
                           std::weak_ptr<YMSCBPeripheral> parent, const yms_u128_t& base,
                           const platform::UUID& uuid)
    : platform_(&platform),
      log_(platform.log, "YMSCBService"),
      name_(std::move(name)),
      parent_(std::move(parent)),
      base_(base),
      uuid_(uuid) {}

YMSCBService::~YMSCBService() = default;

void YMSCBService::setCbService(std::shared_ptr<platform::Service> service) {
  cbService_ = std::move(service);
}

std::shared_ptr<YMSCBCharacteristic> YMSCBService::operator[](std::string_view key) const {
  const auto entry = characteristicDict_.find(key);
  return entry == characteristicDict_.end() ? nullptr : entry->second;
}

void YMSCBService::addCharacteristicWithOffset(std::string name, std::int32_t offset) {
  addCharacteristic(std::move(name), YMSCBUtils::createCBUUIDWithIntOffset(base_, offset), offset);
}

void YMSCBService::addCharacteristicWithBLEOffset(std::string name, std::int32_t offset) {
  addCharacteristic(std::move(name), YMSCBUtils::createCBUUIDWithIntBLEOffset(base_, offset),
                    offset);
}

void YMSCBService::addCharacteristicWithAddress(std::string name, std::int32_t address) {
  addCharacteristic(std::move(name), YMSCBUtils::createCBUUIDWithShortNumber(address), address);
}

void YMSCBService::addCharacteristicWithUuid(std::string name, std::int32_t /*address*/,
                                             std::string_view uuid) {
  addCharacteristic(std::move(name), platform::UUID::withString(uuid), 0);
}

void YMSCBService::addCharacteristic(std::string name, platform::UUID uuid, std::int32_t offset) {
  auto characteristic =
      std::make_shared<YMSCBCharacteristic>(*platform_, name, parent_, uuid, offset);
  characteristicDict_.insert_or_assign(std::move(name), std::move(characteristic));
}

std::vector<platform::UUID> YMSCBService::characteristics() const {
  std::vector<platform::UUID> uuids;
  for (const auto& [name, characteristic] : characteristicDict_) {
    uuids.push_back(characteristic->uuid());
  }
  return uuids;
}

std::vector<platform::UUID> YMSCBService::characteristicsSubset(
    const std::vector<std::string>& names) const {
  std::vector<platform::UUID> uuids;
  for (const auto& name : names) {
    if (const auto characteristic = (*this)[name]) {
      uuids.push_back(characteristic->uuid());
    } else {
      log_.warning(
          fmt::format("WARNING: characteristic key '{}' is not found in service '{}' for "
                      "characteristicSubset:",
                      name, name_));
    }
  }
  return uuids;
}

void YMSCBService::syncCharacteristics(
    const std::vector<std::shared_ptr<platform::Characteristic>>& cbCharacteristics) {
  for (const auto& [name, characteristic] : characteristicDict_) {
    const auto match = std::find_if(cbCharacteristics.begin(), cbCharacteristics.end(),
                                    [&](const auto& cbCharacteristic) {
                                      return cbCharacteristic->uuid() == characteristic->uuid();
                                    });
    if (match != cbCharacteristics.end()) {
      characteristic->setCbCharacteristic(*match);
    }
  }
  // A turn later, so that whoever is called back for this discovery still sees the service disabled
  // and decides for itself when it is of use.
  platform_->runLoop.mainQueue().async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->setIsEnabled(true);
    }
  });
}

std::shared_ptr<YMSCBCharacteristic> YMSCBService::findCharacteristic(
    const std::shared_ptr<platform::Characteristic>& cbCharacteristic) const {
  for (const auto& [name, characteristic] : characteristicDict_) {
    const auto& bound = characteristic->cbCharacteristic();
    if (bound && cbCharacteristic && bound->uuid() == cbCharacteristic->uuid()) {
      return characteristic;
    }
  }
  return nullptr;
}

void YMSCBService::discoverCharacteristics(const std::optional<std::vector<platform::UUID>>& uuids,
                                           DiscoverCharacteristicsCallback callback) {
  if (!cbService_) {
    log_.error("CB service is nil");
    return;
  }
  discoverCharacteristicsCallback_ = std::move(callback);
  const auto peripheral = parent_.lock();
  if (peripheral && peripheral->cbPeripheral()) {
    peripheral->cbPeripheral()->discoverCharacteristics(uuids, cbService_);
  }
}

void YMSCBService::handleDiscoveredCharacteristicsResponse(
    const CharacteristicDict& characteristics, const platform::ErrorOrNone& error) {
  if (!discoverCharacteristicsCallback_) {
    return;
  }
  const auto self = shared_from_this();
  const DiscoverCharacteristicsCallback callback = std::move(discoverCharacteristicsCallback_);
  callback(characteristics, error);
  discoverCharacteristicsCallback_ = nullptr;
}

void YMSCBService::notifyCharacteristicHandler(
    const std::shared_ptr<YMSCBCharacteristic>& /*characteristic*/,
    const platform::ErrorOrNone& /*error*/) {}

}  // namespace wrixel2::bleobjects
