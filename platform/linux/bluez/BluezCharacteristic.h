#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Characteristic.h"
#include "platform/linux/bluez/BluezDescriptor.h"

namespace wrixel2::platform::bluez {

/// A characteristic for the life of one link. What the public operations show changes in the turns
/// in which the delegate hears of it; the rest is what the GATT client knows already.
class BluezCharacteristic final : public Characteristic {
 public:
  BluezCharacteristic(std::string path, const UUID& uuid, std::weak_ptr<Service> service)
      : path_(std::move(path)), uuid_(uuid), service_(std::move(service)) {}

  const UUID& uuid() const override { return uuid_; }
  std::shared_ptr<Service> service() const override { return service_.lock(); }
  std::optional<Bytes> value() const override { return value_; }
  bool isNotifying() const override { return isNotifying_; }
  std::vector<std::shared_ptr<Descriptor>> descriptors() const override {
    return {descriptors_.begin(), descriptors_.end()};
  }

  void setValue(Bytes value) { value_ = std::move(value); }
  void setIsNotifying(bool isNotifying) { isNotifying_ = isNotifying; }
  void setDescriptors(std::vector<std::shared_ptr<BluezDescriptor>> descriptors) {
    descriptors_ = std::move(descriptors);
  }

  const std::string& path() const { return path_; }

  /// bluetoothd sends us its notifications.
  bool isSubscribed = false;
  /// bluetoothd has taken it away, which may be for a moment only.
  bool isRemoved = false;
  /// What is announced meanwhile is kept until it is known what it is.
  bool isHolding = false;
  std::vector<Bytes> held;

 private:
  std::string path_;
  UUID uuid_;
  std::weak_ptr<Service> service_;
  std::optional<Bytes> value_;
  bool isNotifying_ = false;
  std::vector<std::shared_ptr<BluezDescriptor>> descriptors_;
};

}  // namespace wrixel2::platform::bluez
