#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companion/LowBatteryAlert.h"
#include "companion/UserAlertPresenter.h"
#include "platform/simulated/SimulatedUserDefaults.h"

namespace wrixel2::companion {
namespace {

struct FakeUserAlerts final : UserAlertPresenter {
  void present(std::string_view title, std::string_view message) override {
    EXPECT_EQ(title, "Band battery low");
    presented.emplace_back(message);
  }
  std::vector<std::string> presented;
};

/// Levels are per cent; below zero they are new thresholds.
struct Case {
  const char* what;
  std::vector<int> levels;
  std::vector<std::string> alerts;
};

const Case kCases[] = {
    {"the threshold itself is not low", {80, 15}, {}},
    {"once", {15, 14, 13, 5, 1}, {"14 % left"}},
    {"unknown is nothing", {0, 40, 0, 14, 0, 14, 0}, {"14 % left"}},
    {"low at first sight", {3}, {"3 % left"}},
    {"a level that wobbles is not charged", {14, 16, 14, 24, 14}, {"14 % left"}},
    {"charged", {14, 25, 14}, {"14 % left", "14 % left"}},
    {"charged, and never seen between", {14, 100, 2}, {"14 % left", "2 % left"}},
    {"a higher threshold applies at once", {40, -50}, {"40 % left"}},
    {"a higher threshold, alerted already", {14, -50}, {"14 % left"}},
    {"a lower threshold", {14, -10, 12, 9}, {"14 % left", "9 % left"}},
    {"a threshold that only a full battery passes",
     {-95, 94, 99, 94, 100, 94},
     {"94 % left", "94 % left"}},
};

TEST(LowBatteryAlertTest, TellsOnceForEachTimeThatItRunsLow) {
  for (const Case& item : kCases) {
    SCOPED_TRACE(item.what);
    FakeUserAlerts userAlerts;
    platform::simulated::SimulatedUserDefaults defaults;
    LowBatteryAlert alert(userAlerts, defaults);
    alert.setThreshold(15);
    for (const int level : item.levels) {
      if (level < 0) {
        alert.setThreshold(-level);
      } else {
        alert.levelIs(level);
      }
    }
    EXPECT_EQ(userAlerts.presented, item.alerts);
  }
}

TEST(LowBatteryAlertTest, RemembersFromRunToRun) {
  FakeUserAlerts userAlerts;
  platform::simulated::SimulatedUserDefaults defaults;
  for (const int level : {14, 13, 20, 12, 30, 11}) {
    LowBatteryAlert alert(userAlerts, defaults);
    alert.levelIs(level);  // may be known before the settings are
    alert.setThreshold(15);
    EXPECT_EQ(platform::boolForKey(defaults.synchronizedValues(), "lowBatteryAlerted"), level < 30);
  }
  EXPECT_EQ(userAlerts.presented, (std::vector<std::string>{"14 % left", "11 % left"}));
}

TEST(LowBatteryAlertTest, IsSwitchedOffByAThresholdOfZero) {
  FakeUserAlerts userAlerts;
  platform::simulated::SimulatedUserDefaults defaults;
  LowBatteryAlert alert(userAlerts, defaults);
  alert.setThreshold(0);
  alert.levelIs(1);
  EXPECT_TRUE(userAlerts.presented.empty());
}

}  // namespace
}  // namespace wrixel2::companion
