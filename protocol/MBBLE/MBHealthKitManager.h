#pragma once

#include "platform/HealthStore.h"
#include "platform/SystemInfo.h"

namespace wrixel2::platform {
struct Platform;
}

namespace wrixel2::mbble {

/// The one that talks to the health store.
class MBHealthKitManager {
 public:
  MBHealthKitManager(platform::HealthStore& healthStore, const platform::SystemInfo& systemInfo);

  /// The process's own, made by the first call with that call's platform.
  static MBHealthKitManager& sharedManager(const platform::Platform& platform);

  /// Whether samples can be kept here at all: the platform's version is 8.0 or later, and the store
  /// says that it has health data.
  bool isHealtKitAvailable() const;

  platform::HealthStore& healthStore() const { return *healthStore_; }
  void setHealthStore(platform::HealthStore& healthStore) { healthStore_ = &healthStore; }

 private:
  platform::HealthStore* healthStore_;
  const platform::SystemInfo* systemInfo_;
};

}  // namespace wrixel2::mbble
