#pragma once

namespace wrixel2::platform {

/// The place where measured values are kept for the owner.
class HealthStore {
 public:
  virtual ~HealthStore() = default;
  /// Whether this device has health data at all.
  virtual bool isHealthDataAvailable() const = 0;
};

}  // namespace wrixel2::platform
