#pragma once

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "platform/Characteristic.h"
#include "platform/simulated/SimulatedDescriptor.h"

namespace wrixel2::platform::simulated {

class SimulatedService;

/// A discovered characteristic of a virtual band. Its peripheral changes it, each time in the turn
/// in which the delegate hears of it.
class SimulatedCharacteristic final : public Characteristic {
 public:
  SimulatedCharacteristic(const UUID& uuid, bool canNotify,
                          const std::shared_ptr<SimulatedService>& service)
      : uuid_(uuid), canNotify_(canNotify), service_(service) {}

  const UUID& uuid() const override { return uuid_; }
  std::shared_ptr<Service> service() const override;
  std::optional<Bytes> value() const override { return value_; }
  bool isNotifying() const override { return isNotifying_; }
  std::vector<std::shared_ptr<Descriptor>> descriptors() const override {
    return {descriptors_.begin(), descriptors_.end()};
  }

  std::shared_ptr<SimulatedService> simulatedService() const { return service_.lock(); }
  void setValue(Bytes value) { value_ = std::move(value); }
  void setIsNotifying(bool isNotifying) { isNotifying_ = isNotifying; }
  /// One that notifies has the client's configuration.
  void findDescriptors();
  /// The link it was found on has ended.
  void detach();

 private:
  UUID uuid_;
  bool canNotify_;
  std::weak_ptr<SimulatedService> service_;
  std::optional<Bytes> value_;
  bool isNotifying_ = false;
  std::vector<std::shared_ptr<SimulatedDescriptor>> descriptors_;
};

}  // namespace wrixel2::platform::simulated
