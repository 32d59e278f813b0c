#include "protocol/MBBLE/MBHealthKitManager.h"

#include <cerrno>
#include <charconv>
#include <utility>

#include <fmt/format.h>

#include "platform/Platform.h"

namespace wrixel2::mbble {

namespace {
/// The first version that has a health store.
constexpr double kFirstVersionWithHealthStore = 8.0;

/// What the band can measure: it sends one byte.
constexpr std::int64_t kHighestHeartRate = 255;

/// "10.3.1" counts as 10.3; a text that does not begin with a number as 0.
double versionNumber(const std::string& version) {
  double number = 0;
  std::from_chars(version.data(), version.data() + version.size(), number);
  return number;
}
}  // namespace

MBHealthKitManager::MBHealthKitManager(platform::HealthStore& healthStore,
                                       const platform::SystemInfo& systemInfo,
                                       const platform::Clock& clock, platform::Log& log)
    : healthStore_(&healthStore),
      systemInfo_(&systemInfo),
      clock_(&clock),
      logger_(log, "MBHealthKitManager") {}

MBHealthKitManager& MBHealthKitManager::sharedManager(const platform::Platform& platform) {
  static MBHealthKitManager manager(platform.healthStore, platform.systemInfo, platform.clock,
                                    platform.log);
  return manager;
}

bool MBHealthKitManager::isHealtKitAvailable() const {
  return versionNumber(systemInfo_->systemVersion) >= kFirstVersionWithHealthStore &&
         healthStore_->isHealthDataAvailable();
}

void MBHealthKitManager::requestAuthorization() {
  requestAuthorizationWithBlock([] {});
}

void MBHealthKitManager::requestAuthorizationWithBlock(
    platform::UniqueFunction<void()> completion) {
  authorize([completion = std::move(completion)](const platform::ErrorOrNone& error) {
    if (!error) {
      completion();
    }
  });
}

void MBHealthKitManager::authorize(Completion completion) {
  if (isAuthorized_) {
    completion(std::nullopt);
    return;
  }
  if (!isHealtKitAvailable()) {
    logger_.warning("Health Kit not available");
    completion(platform::Error{0, "there is no place for health data"});
    return;
  }
  healthStore_->requestAuthorizationToShare(platform::kHeartRateType, [this, completion = std::move(
                                                                                 completion)](
                                                                          const platform::
                                                                              ErrorOrNone& error) {
    isAuthorized_ = !error;
    if (error) {
      // Blanks are missing in it, and stay so: people search their logs for this text.
      logger_.warning(fmt::format(
          "You didn't allow HealthKit to access these read/write data types.In your app, try to "
          "handle this error gracefully when a user decidesnot to provide access. The error "
          "was: {}.",
          platform::description(error)));
    }
    completion(error);
  });
}

void MBHealthKitManager::writeHeartRate(std::int64_t heartRate) {
  writeHeartRate(heartRate, [](const platform::ErrorOrNone&) {});
}

void MBHealthKitManager::writeHeartRate(std::int64_t heartRate, Completion completion) {
  if (heartRate <= 0 || heartRate > kHighestHeartRate) {
    logger_.warning("Invalid Heart Rate measurement, not adding to the database");
    completion(heartRate == 0 ? platform::ErrorOrNone()
                              : platform::Error{ERANGE, "a heart rate is 0 to 255 a minute"});
    return;
  }
  authorize([this, heartRate,
             completion = std::move(completion)](const platform::ErrorOrNone& error) mutable {
    if (error) {
      completion(error);
    } else {
      save(heartRate, std::move(completion));
    }
  });
}

void MBHealthKitManager::save(std::int64_t heartRate, Completion completion) {
  const auto now = clock_->now();
  healthStore_->saveSample(
      {.type = std::string(platform::kHeartRateType),
       .unit = std::string(platform::kCountPerMinute),
       .quantity = static_cast<double>(heartRate),
       .startDate = now,
       .endDate = now},
      [this, heartRate, completion = std::move(completion)](const platform::ErrorOrNone& error) {
        if (error) {
          logger_.warning(fmt::format("Error while saving heartRate ({}) to Health Store: {}.",
                                      heartRate, platform::description(error)));
        }
        completion(error);
      });
}

}  // namespace wrixel2::mbble
