#include "protocol/MBBLE/MBHealthKitManager.h"

#include <charconv>

#include "platform/Platform.h"

namespace wrixel2::mbble {

namespace {
/// The first version that has a health store.
constexpr double kFirstVersionWithHealthStore = 8.0;

/// "10.3.1" counts as 10.3; a text that does not begin with a number as 0.
double versionNumber(const std::string& version) {
  double number = 0;
  std::from_chars(version.data(), version.data() + version.size(), number);
  return number;
}
}  // namespace

MBHealthKitManager::MBHealthKitManager(platform::HealthStore& healthStore,
                                       const platform::SystemInfo& systemInfo)
    : healthStore_(&healthStore), systemInfo_(&systemInfo) {}

MBHealthKitManager& MBHealthKitManager::sharedManager(const platform::Platform& platform) {
  static MBHealthKitManager manager(platform.healthStore, platform.systemInfo);
  return manager;
}

bool MBHealthKitManager::isHealtKitAvailable() const {
  return versionNumber(systemInfo_->systemVersion) >= kFirstVersionWithHealthStore &&
         healthStore_->isHealthDataAvailable();
}

}  // namespace wrixel2::mbble
