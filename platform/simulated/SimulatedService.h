#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/Service.h"
#include "platform/simulated/SimulatedCharacteristic.h"

namespace wrixel2::platform::simulated {

/// A discovered service of a virtual band.
class SimulatedService final : public Service,
                               public std::enable_shared_from_this<SimulatedService> {
 public:
  explicit SimulatedService(const UUID& uuid) : uuid_(uuid) {}

  const UUID& uuid() const override { return uuid_; }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    return {characteristics_.begin(), characteristics_.end()};
  }

  /// Adds those of the band's characteristics that are wanted (none: all) and not found yet.
  void findCharacteristics(const std::optional<std::vector<UUID>>& wanted);
  std::shared_ptr<SimulatedCharacteristic> characteristic(const UUID& uuid) const;
  bool isDetached() const { return isDetached_; }
  /// The link it was found on has ended.
  void detach();

 private:
  UUID uuid_;
  std::vector<std::shared_ptr<SimulatedCharacteristic>> characteristics_;
  bool isDetached_ = false;
};

}  // namespace wrixel2::platform::simulated
