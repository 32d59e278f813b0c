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

/// Every global key: how it shows in the settings, its default, and what a text reads as.
struct Key {
  const char* name;
  std::uint64_t (*value)(const Settings&);
  std::uint64_t fallback;
  bool isBoolean;
};

const Key kKeys[] = {
    {"enabled", [](const Settings& s) { return std::uint64_t{s.enabled}; }, 1, true},
    {"donotdisturb", [](const Settings& s) { return std::uint64_t{s.doNotDisturb}; }, 1, true},
    {"donotannoy", [](const Settings& s) { return std::uint64_t{s.doNotAnnoy}; }, 0, true},
    {"alarmSwitch", [](const Settings& s) { return std::uint64_t{s.alarmSwitch}; }, 1, true},
    {"vibrateHrMeasure", [](const Settings& s) { return std::uint64_t{s.vibrateHrMeasure}; }, 0,
     true},
    {"onlyLocked", [](const Settings& s) { return std::uint64_t{s.onlyLocked}; }, 0, true},
    {"connectedMode", [](const Settings& s) { return s.connectedMode; }, 0, false},
    {"continuousHr", [](const Settings& s) { return std::uint64_t{s.continuousHr}; }, 0, true},
    {"stopwatchSwitch", [](const Settings& s) { return std::uint64_t{s.stopwatchSwitch}; }, 0,
     true},
    {"mode", [](const Settings& s) { return s.mode; }, 0, false},
    {"timeout", [](const Settings& s) { return s.timeout; }, 15, false},
    {"hrInterval", [](const Settings& s) { return s.hrInterval; }, 0, false},
    {"moveEnabled", [](const Settings& s) { return std::uint64_t{s.move.moveEnabled}; }, 0, true},
    {"onlyWeekdays", [](const Settings& s) { return std::uint64_t{s.move.onlyWeekdays}; }, 1, true},
    {"sensitivity", [](const Settings& s) { return s.move.sensitivity; }, 10, false},
    {"stepRepeat", [](const Settings& s) { return s.move.stepRepeat; }, 1, false},
    {"remindPeriod", [](const Settings& s) { return s.move.remindPeriod; }, 1, false},
    {"startSteps", [](const Settings& s) { return s.move.startSteps; }, 8, false},
    {"endSteps", [](const Settings& s) { return s.move.endSteps; }, 16, false},
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
  const auto chat = settings.alertOfApp("org.example.Chat", logger_);
  EXPECT_EQ(chat.repeat, 3U);
  EXPECT_EQ(chat.icon, 9U);
  EXPECT_EQ(chat.pattern, 4U);
  EXPECT_TRUE(chat.preview);

  const auto unknown = settings.alertOfApp("org.example.Other", logger_);
  EXPECT_EQ(unknown.repeat, 1U);
  EXPECT_EQ(unknown.icon, 0U);
  EXPECT_EQ(unknown.pattern, 0U);
  EXPECT_FALSE(unknown.preview);

  EXPECT_EQ(settings.alertOfApp("negative", logger_).repeat, 0U);
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_EQ(settings.alertOfApp("broken", logger_).icon, 0U);
  EXPECT_TRUE(log_.contains(LogLevel::warning, "\"MBIcon-broken\""));
}

TEST_F(SettingsTest, OnlyTheRepeatCountLeavesTheScheduleAlone) {
  const auto old = MoveSettings::fromDictionary({}, logger_);
  const struct {
    const char* key;
    int value;
    bool isAlike;
  } kCases[] = {{"moveEnabled", 1, false}, {"onlyWeekdays", 0, false}, {"sensitivity", 11, false},
                {"stepRepeat", 5, true},   {"remindPeriod", 2, false}, {"startSteps", 9, false},
                {"endSteps", 17, false}};
  for (const auto& c : kCases) {
    EXPECT_EQ(MoveSettings::fromDictionary({{c.key, c.value}}, logger_).schedulesLike(old),
              c.isAlike)
        << c.key;
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
      {8, 9, 1, periodTooLong},
      {8, 10, 1, none},
      {22, 6, 2, none},  // over midnight
      {22, 6, 7, none},  // 22 + 7 < 6 + 24
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
