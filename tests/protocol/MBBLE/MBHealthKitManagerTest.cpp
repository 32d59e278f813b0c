#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBHealthKitManager.h"

namespace wrixel2::mbble {
namespace {

using platform::LogLevel;

class MBHealthKitManagerTest : public testing::Test {
 protected:
  const std::vector<platform::QuantitySample>& samples() const {
    return phone.healthStore.samples();
  }

  platform::simulated::SimulatedPlatform phone;
  MBHealthKitManager manager{phone.healthStore, phone.systemInfo, phone.clock, phone.log};
};

TEST_F(MBHealthKitManagerTest, StoresARateOfNowAndAsksForPermissionOnce) {
  phone.runLoop.runFor(std::chrono::minutes(3));
  manager.writeHeartRate(72);
  manager.writeHeartRate(255);
  const auto now = phone.clock.now();
  EXPECT_EQ(samples(), (std::vector<platform::QuantitySample>{
                           {"HKQuantityTypeIdentifierHeartRate", "count/min", 72, now, now},
                           {"HKQuantityTypeIdentifierHeartRate", "count/min", 255, now, now}}));
  EXPECT_EQ(phone.healthStore.authorizationRequests(), 1U);
  EXPECT_TRUE(phone.log.lines().empty());

  // Once granted it is, whatever would be answered now; and what is no rate touches nothing.
  phone.healthStore.setIsHealthDataAvailable(false);
  phone.healthStore.refusal = platform::Error{5, "not now"};
  manager.writeHeartRate(1);
  EXPECT_EQ(samples().size(), 3U);
  std::vector<long> codes;
  for (const std::int64_t rate : {0L, -1L, 256L, INT64_MAX, INT64_MIN}) {
    manager.writeHeartRate(rate, [&codes](const platform::ErrorOrNone& error) {
      codes.push_back(error ? error->code : 0);
    });
  }
  EXPECT_EQ(codes, (std::vector<long>{0, ERANGE, ERANGE, ERANGE, ERANGE}));
  EXPECT_EQ(phone.log.count(LogLevel::warning,
                            "Invalid Heart Rate measurement, not adding to the database"),
            5U);
  EXPECT_EQ(samples().size(), 3U);
  EXPECT_EQ(phone.healthStore.authorizationRequests(), 1U);
}

TEST_F(MBHealthKitManagerTest, ARefusalIsAskedAboutAgain) {
  phone.healthStore.refusal = platform::Error{5, "not now"};
  bool isPermitted = false;
  manager.requestAuthorizationWithBlock([&isPermitted] { isPermitted = true; });
  manager.writeHeartRate(70);
  EXPECT_FALSE(isPermitted);
  EXPECT_FALSE(manager.isAuthorized());
  EXPECT_EQ(phone.log.count(LogLevel::warning,
                            "You didn't allow HealthKit to access these read/write data types.In "
                            "your app, try to handle this error gracefully when a user "
                            "decidesnot to provide access. The error was: not now (code 5)."),
            2U);
  phone.healthStore.refusal.reset();
  manager.writeHeartRate(71);
  EXPECT_TRUE(manager.isAuthorized());
  EXPECT_EQ(samples().size(), 1U);
}

TEST_F(MBHealthKitManagerTest, NeedsAStoreAndVersionEight) {
  const struct {
    const char* version;
    bool hasHealthData;
    bool isAvailable;
  } cases[] = {{"9", false, false}, {"7.9", true, false},   {"", true, false}, {"x", true, false},
               {"8.0", true, true}, {"10.3.1", true, true}, {"9", true, true}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.version);
    phone.log.clear();
    phone.systemInfo.systemVersion = test.version;
    phone.healthStore.setIsHealthDataAvailable(test.hasHealthData);
    EXPECT_EQ(manager.isHealtKitAvailable(), test.isAvailable);
    manager.writeHeartRate(70);
    EXPECT_EQ(phone.log.count(LogLevel::warning, "Health Kit not available"),
              test.isAvailable ? 0U : 1U);
  }
  EXPECT_EQ(samples().size(), 3U);
}

TEST_F(MBHealthKitManagerTest, AFailedSaveIsALineAndAnAnswer) {
  phone.healthStore.saveError = platform::Error{28, "the disk is full"};
  platform::ErrorOrNone answer;
  manager.writeHeartRate(66, [&answer](const platform::ErrorOrNone& error) { answer = error; });
  EXPECT_EQ(answer, phone.healthStore.saveError);
  EXPECT_TRUE(phone.log.contains(
      LogLevel::warning,
      "Error while saving heartRate (66) to Health Store: the disk is full (code 28)."));
}

}  // namespace
}  // namespace wrixel2::mbble
