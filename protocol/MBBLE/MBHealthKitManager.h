#pragma once

#include <cstdint>

#include "platform/HealthStore.h"
#include "platform/Log.h"
#include "platform/SystemInfo.h"

namespace wrixel2::platform {
class Clock;
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::mbble {

/// The one that talks to the health store: whether there is one, the permission to write, and the
/// samples. What it is given outlives it.
class MBHealthKitManager {
 public:
  using Completion = platform::HealthStore::Completion;

  MBHealthKitManager(platform::HealthStore& healthStore, const platform::SystemInfo& systemInfo,
                     const platform::Clock& clock, platform::Log& log);

  /// The process's own, made by the first call with that call's platform.
  static MBHealthKitManager& sharedManager(const platform::Platform& platform);

  /// Whether samples can be kept here at all: the platform's version is 8.0 or later, and the store
  /// says that it has health data.
  bool isHealtKitAvailable() const;

  void requestAuthorization();
  /// Calls back once writing is permitted, which is asked for once a process unless refused. Where
  /// there is no store, or it refuses, that is a line in the log and no call.
  void requestAuthorizationWithBlock(platform::UniqueFunction<void()> completion);

  /// Stores a heart rate of now, in beats per minute. A rate that is not from 1 to 255, a refusal
  /// and a failure are lines in the log.
  void writeHeartRate(std::int64_t heartRate);
  /// The same, and tells what came of it: none when the sample is durable, or was 0 (a measurement
  /// that found nothing); ERANGE for what is no heart rate.
  void writeHeartRate(std::int64_t heartRate, Completion completion);

  platform::HealthStore& healthStore() const { return *healthStore_; }
  void setHealthStore(platform::HealthStore& healthStore) { healthStore_ = &healthStore; }
  bool isAuthorized() const { return isAuthorized_; }
  void setIsAuthorized(bool isAuthorized) { isAuthorized_ = isAuthorized; }

 private:
  /// As requestAuthorizationWithBlock, with the reason where writing is not permitted.
  void authorize(Completion completion);
  void save(std::int64_t heartRate, Completion completion);

  platform::HealthStore* healthStore_;
  const platform::SystemInfo* systemInfo_;
  const platform::Clock* clock_;
  platform::Logger logger_;
  bool isAuthorized_ = false;
};

}  // namespace wrixel2::mbble
