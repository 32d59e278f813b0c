#pragma once

#include "platform/HealthStore.h"

namespace wrixel2::platform::simulated {

/// A device that has health data, or not.
class SimulatedHealthStore final : public HealthStore {
 public:
  bool isHealthDataAvailable() const override { return isAvailable_; }
  void setIsHealthDataAvailable(bool isAvailable) { isAvailable_ = isAvailable; }

 private:
  bool isAvailable_ = true;
};

}  // namespace wrixel2::platform::simulated
