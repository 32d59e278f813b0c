#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/MoveWindow.h"
#include "daemon/Settings.h"
#include "platform/simulated/RecordingLog.h"

namespace wrixel2::daemon {
namespace {

using platform::Dictionary;
using platform::LogLevel;
using platform::Value;

constexpr std::uint64_t unsignedOf(std::int64_t value) { return static_cast<std::uint64_t>(value); }

class SettingsTest : public testing::Test {
 protected:
  Settings read(const Dictionary& entries) { return Settings::fromDictionary(entries, logger_); }

  platform::simulated::RecordingLog log_;
  platform::Logger logger_{log_, "main"};
};

/// Every global key: how it shows in the settings, and its default.
struct Key {
  const char* name;
  std::uint64_t (*value)(const Settings&);
  std::uint64_t fallback;
  bool isBoolean = false;
};

using S = const Settings&;
const Key kKeys[] = {
    {"enabled", [](S s) { return std::uint64_t{s.enabled}; }, 1, true},
    {"donotdisturb", [](S s) { return std::uint64_t{s.doNotDisturb}; }, 1, true},
    {"donotannoy", [](S s) { return std::uint64_t{s.doNotAnnoy}; }, 0, true},
    {"alarmSwitch", [](S s) { return std::uint64_t{s.alarmSwitch}; }, 1, true},
    {"vibrateHrMeasure", [](S s) { return std::uint64_t{s.vibrateHrMeasure}; }, 0, true},
    {"onlyLocked", [](S s) { return std::uint64_t{s.onlyLocked}; }, 0, true},
    {"connectedMode", [](S s) { return s.connectedMode; }, 0},
    {"continuousHr", [](S s) { return std::uint64_t{s.continuousHr}; }, 0, true},
    {"stopwatchSwitch", [](S s) { return std::uint64_t{s.stopwatchSwitch}; }, 0, true},
    {"mode", [](S s) { return s.mode; }, 0},
    {"timeout", [](S s) { return s.timeout; }, 15},
    {"hrInterval", [](S s) { return s.hrInterval; }, 0},
    {"moveEnabled", [](S s) { return std::uint64_t{s.move.moveEnabled}; }, 0, true},
    {"onlyWeekdays", [](S s) { return std::uint64_t{s.move.onlyWeekdays}; }, 1, true},
    {"sensitivity", [](S s) { return s.move.sensitivity; }, 10},
    {"stepRepeat", [](S s) { return s.move.stepRepeat; }, 1},
    {"remindPeriod", [](S s) { return s.move.remindPeriod; }, 1},
    {"startSteps", [](S s) { return s.move.startSteps; }, 8},
    {"endSteps", [](S s) { return s.move.endSteps; }, 16},
};

TEST_F(SettingsTest, EveryKeyConvertsAndHasItsDefault) {
  for (const auto& key : kKeys) {
    SCOPED_TRACE(key.name);
    const auto with = [&](const Value& value) { return key.value(read({{key.name, value}})); };
    EXPECT_EQ(key.value(read({})), key.fallback);
    EXPECT_EQ(with(0), 0U);
    EXPECT_EQ(with(false), 0U);
    EXPECT_EQ(with(true), 1U);
    EXPECT_EQ(with(7), key.isBoolean ? 1U : 7U);
    EXPECT_EQ(with("7 of them"), key.isBoolean ? 1U : 7U);
    EXPECT_EQ(with("no"), 0U);
    EXPECT_EQ(with(2.9), key.isBoolean ? 1U : 2U);
    // No range is checked here: a negative number becomes a huge one, and 33 bits lose the highest.
    EXPECT_EQ(with(-1), key.isBoolean ? 1U : unsignedOf(-1));
    EXPECT_EQ(with(0x1'0000'0005), key.isBoolean ? 1U : 5U);
  }
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(SettingsTest, AnEntryOfTheWrongKindIsAWarningInTableOrderAndReadsAsAbsent) {
  Dictionary entries;
  for (const auto& key : kKeys) {
    entries.emplace(key.name, platform::Array{1});
  }
  const auto settings = read(entries);

  const auto warnings = log_.messages(LogLevel::warning);
  ASSERT_EQ(warnings.size(), std::size(kKeys));
  for (std::size_t i = 0; i < std::size(kKeys); ++i) {
    EXPECT_NE(warnings[i].find("\"" + std::string(kKeys[i].name) + "\""), std::string::npos)
        << warnings[i];
    EXPECT_EQ(kKeys[i].value(settings), kKeys[i].fallback) << kKeys[i].name;
  }
}

TEST_F(SettingsTest, AppsAreLookedUpInTheSnapshotWithTheFirstVibrationAdded) {
  const auto settings = read({{"MBRepeat-org.example.Chat", 2},
                              {"MBIcon-org.example.Chat", "9"},
                              {"MBPattern-org.example.Chat", 4},
                              {"MBPreview-org.example.Chat", "Yes"},
                              {"MBRepeat-negative", -1},
                              {"MBIcon-broken", Dictionary{}}});
  const struct {
    const char* app;
    std::uint64_t repeat, icon, pattern;
    bool preview;
  } kApps[] = {{"org.example.Chat", 3, 9, 4, true},
               {"org.example.Other", 1, 0, 0, false},
               {"negative", 0, 0, 0, false},
               {"broken", 1, 0, 0, false}};
  for (const auto& [app, repeat, icon, pattern, preview] : kApps) {
    SCOPED_TRACE(app);
    EXPECT_TRUE(log_.lines().empty());
    const auto alert = settings.alertOfApp(app, logger_);
    EXPECT_EQ(alert.repeat, repeat);
    EXPECT_EQ(alert.icon, icon);
    EXPECT_EQ(alert.pattern, pattern);
    EXPECT_EQ(alert.preview, preview);
  }
  EXPECT_TRUE(log_.contains(LogLevel::warning, "\"MBIcon-broken\""));
}

TEST_F(SettingsTest, OnlyTheRepeatCountLeavesTheScheduleAlone) {
  const auto old = MoveSettings::fromDictionary({}, logger_);
  const std::pair<const char*, int> kChanges[] = {
      {"moveEnabled", 1},  {"onlyWeekdays", 0}, {"sensitivity", 11}, {"stepRepeat", 5},
      {"remindPeriod", 2}, {"startSteps", 9},   {"endSteps", 17}};
  for (const auto& [key, value] : kChanges) {
    const auto changed = MoveSettings::fromDictionary({{key, value}}, logger_);
    EXPECT_EQ(changed.schedulesLike(old), key == std::string("stepRepeat")) << key;
  }
}

TEST(MoveWindowTest, HasRoomForAPeriodOrIsFaulty) {
  using enum MoveWindowFault;
  const struct {
    std::uint64_t start, end, period;
    MoveWindowFault fault;
  } kCases[] = {
      {8, 16, 1, none},
      {8, 16, 7, none},           // 8 + 7 < 16
      {8, 16, 8, periodTooLong},  // 8 + 8 >= 16
      {22, 6, 2, none},           // over midnight
      {22, 6, 7, none},           // 22 + 7 < 6 + 24
      {22, 6, 8, periodTooLong},
      {23, 0, 1, periodTooLong},
      {23, 1, 1, none},
      {9, 9, 1, sameHours},
      {0, 0, 0, sameHours},
      {8, 16, 0, none},                       // no period is no matter of the window
      {8, 16, unsignedOf(-1), none},          // wraps to 7
      {unsignedOf(-1), 16, 1, none},          // wraps to 0
      {8, unsignedOf(-2), 1, none},           // a huge end is not reached
      {8, 16, unsignedOf(-8), none},          // wraps to 0
      {8, 16, unsignedOf(-9), periodTooLong}  // just does not wrap
  };
  for (const auto& c : kCases) {
    MoveSettings settings;
    settings.startSteps = c.start;
    settings.endSteps = c.end;
    settings.remindPeriod = c.period;
    EXPECT_EQ(moveWindowFault(settings), c.fault)
        << c.start << " to " << c.end << " by " << c.period;
  }
}

}  // namespace
}  // namespace wrixel2::daemon
