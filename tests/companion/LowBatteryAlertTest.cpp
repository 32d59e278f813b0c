#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companion/LowBatteryAlert.h"
#include "platform/simulated/SimulatedUserDefaults.h"
#include "tests/companion/Doubles.h"

namespace wrixel2::companion {
namespace {

using Lines = std::vector<std::string>;

TEST(LowBatteryAlertTest, TellsOnceForEachTimeThatItRunsLow) {
  /// Levels are per cent; below zero they are new thresholds, -1 for none.
  const struct {
    const char* what;
    std::vector<int> levels;
    Lines alerts;
  } kCases[] = {
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
      {"a high threshold", {-95, 94, 99, 94, 100, 94}, {"94 % left", "94 % left"}},
      {"switched off", {-1, 1}, {}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    FakeUserAlerts userAlerts;
    platform::simulated::SimulatedUserDefaults defaults;
    LowBatteryAlert alert(userAlerts, defaults);
    alert.setThreshold(15);
    for (const int level : c.levels) {
      if (level < 0) {
        alert.setThreshold(level == -1 ? 0 : -level);
      } else {
        alert.levelIs(level);
      }
    }
    Lines expected;
    for (const std::string& text : c.alerts) {
      expected.push_back("Band battery low: " + text);
    }
    EXPECT_EQ(userAlerts.presented, expected);
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
  EXPECT_EQ(userAlerts.presented,
            (Lines{"Band battery low: 14 % left", "Band battery low: 11 % left"}));
}

}  // namespace
}  // namespace wrixel2::companion
