#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Error.h"
#include "platform/Log.h"
#include "platform/Service.h"
#include "platform/UUID.h"
#include "protocol/BleObjects/YMSCBCallbacks.h"
#include "protocol/BleObjects/YMSCBUtils.h"

namespace wrixel2::platform {
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// A service's number in the last group of its UUID (see yms_u128_genOffset).
struct ServiceOffset {
  std::int32_t value = 0;
};

/// A service's number in the first group of its UUID (see yms_u128_genBLEOffset).
struct ServiceBLEOffset {
  std::int32_t value = 0;
};

/// Base of every service: a table of named characteristics, declared before any connection and
/// bound to the platform's objects by discovery, and a handler through which notified values
/// arrive.
///
/// Owned by its peripheral and always held in a shared pointer.
class YMSCBService : public std::enable_shared_from_this<YMSCBService> {
 public:
  /// Without a base (both words 0) the offset itself is the short UUID of the service.
  YMSCBService(const platform::Platform& platform, std::string name,
               std::weak_ptr<YMSCBPeripheral> parent, std::uint64_t baseHi, std::uint64_t baseLo,
               ServiceOffset serviceOffset);
  YMSCBService(const platform::Platform& platform, std::string name,
               std::weak_ptr<YMSCBPeripheral> parent, std::uint64_t baseHi, std::uint64_t baseLo,
               ServiceBLEOffset serviceOffset);
  YMSCBService(const YMSCBService&) = delete;
  YMSCBService& operator=(const YMSCBService&) = delete;
  virtual ~YMSCBService();

  const std::string& name() const { return name_; }
  void setName(std::string name) { name_ = std::move(name); }
  /// None while the service is not discovered.
  const std::shared_ptr<platform::Service>& cbService() const { return cbService_; }
  void setCbService(std::shared_ptr<platform::Service> service);
  /// None once the peripheral is gone.
  std::shared_ptr<YMSCBPeripheral> parent() const { return parent_.lock(); }
  void setParent(std::weak_ptr<YMSCBPeripheral> parent) { parent_ = std::move(parent); }
  const yms_u128_t& base() const { return base_; }
  void setBase(const yms_u128_t& base) { base_ = base; }
  const platform::UUID& uuid() const { return uuid_; }
  void setUuid(const platform::UUID& uuid) { uuid_ = uuid; }
  /// For subclasses: the feature behind the service is switched on.
  bool isOn() const { return isOn_; }
  void setIsOn(bool isOn) { isOn_ = isOn; }
  /// The characteristics have been bound; true from the turn after that.
  bool isEnabled() const { return isEnabled_; }
  void setIsEnabled(bool isEnabled) { isEnabled_ = isEnabled; }
  /// For subclasses: the peer offers this service.
  bool isSupported() const { return isSupported_; }
  void setIsSupported(bool isSupported) { isSupported_ = isSupported; }
  const CharacteristicDict& characteristicDict() const { return characteristicDict_; }
  void setCharacteristicDict(CharacteristicDict characteristics) {
    characteristicDict_ = std::move(characteristics);
  }
  /// The pending callback, an empty one where nobody waits; setting replaces it uncalled.
  const DiscoverCharacteristicsCallback& discoverCharacteristicsCallback() const {
    return discoverCharacteristicsCallback_;
  }
  void setDiscoverCharacteristicsCallback(DiscoverCharacteristicsCallback callback) {
    discoverCharacteristicsCallback_ = std::move(callback);
  }
  /// None for a name that the table does not have.
  std::shared_ptr<YMSCBCharacteristic> operator[](std::string_view key) const;

  /// A characteristic of the service's base. Each of these replaces an earlier one of that name,
  /// with its pending callbacks.
  void addCharacteristicWithOffset(std::string name, std::int32_t offset);
  void addCharacteristicWithBLEOffset(std::string name, std::int32_t offset);
  /// A characteristic with a short UUID of its own.
  void addCharacteristicWithAddress(std::string name, std::int32_t address);
  /// A characteristic with a full UUID; the address plays no part.
  void addCharacteristicWithUuid(std::string name, std::int32_t address, std::string_view uuid);

  /// The UUIDs of the whole table.
  std::vector<platform::UUID> characteristics() const;
  /// Those of the names, in their order; an unknown name is a warning line and skipped.
  std::vector<platform::UUID> characteristicsSubset(const std::vector<std::string>& names) const;

  /// Binds each entry of the table to the first platform characteristic of its UUID. An entry
  /// without one keeps what it had.
  void syncCharacteristics(
      const std::vector<std::shared_ptr<platform::Characteristic>>& cbCharacteristics);
  /// The first bound entry of that UUID; none if there is none.
  std::shared_ptr<YMSCBCharacteristic> findCharacteristic(
      const std::shared_ptr<platform::Characteristic>& cbCharacteristic) const;

  /// None means all. An error line without a platform service; the callback is then never called. A
  /// second request before the answer replaces the callback.
  void discoverCharacteristics(const std::optional<std::vector<platform::UUID>>& uuids,
                               DiscoverCharacteristicsCallback callback);
  /// Calls the pending callback, then forgets whatever callback is pending. Nothing without one.
  void handleDiscoveredCharacteristicsResponse(const CharacteristicDict& characteristics,
                                               const platform::ErrorOrNone& error);

  /// A notified value, a read answer of a notifying characteristic, or the confirmation of a write
  /// that nobody waits for. The value is characteristic->value().
  virtual void notifyCharacteristicHandler(
      const std::shared_ptr<YMSCBCharacteristic>& characteristic,
      const platform::ErrorOrNone& error);

 protected:
  const platform::Platform& platform() const { return *platform_; }

 private:
  YMSCBService(const platform::Platform& platform, std::string name,
               std::weak_ptr<YMSCBPeripheral> parent, const yms_u128_t& base,
               const platform::UUID& uuid);

  void addCharacteristic(std::string name, platform::UUID uuid, std::int32_t offset);

  const platform::Platform* platform_;
  platform::Logger log_;
  std::string name_;
  std::shared_ptr<platform::Service> cbService_;
  std::weak_ptr<YMSCBPeripheral> parent_;  ///< owns this
  yms_u128_t base_;
  platform::UUID uuid_;
  bool isOn_ = false;
  bool isEnabled_ = false;
  bool isSupported_ = false;
  CharacteristicDict characteristicDict_;
  DiscoverCharacteristicsCallback discoverCharacteristicsCallback_;
};

}  // namespace wrixel2::bleobjects
