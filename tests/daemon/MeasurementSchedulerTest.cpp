#include <chrono>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/MeasurementScheduler.h"
#include "tests/daemon/DaemonHarness.h"
#include "tests/daemon/Printers.h"

namespace wrixel2::daemon {
namespace {

using platform::Date;
using platform::Dictionary;
using platform::LogLevel;
using platform::Value;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr const char* kPeriodic = "com.corvalt.wrixel2";
constexpr const char* kContinuous = "com.corvale.wrixel2";
constexpr const char* kStep = "com.corvale.wrixel2/step";
constexpr const char* const kChains[] = {kPeriodic, kContinuous, kStep};
constexpr const char* kSkipping = "Skipping periodic measurement due to continuous HR";

/// The clock starts on Monday 2026-03-02 at 12:00:00 UTC.
class MeasurementSchedulerTest : public DaemonHarness {
 protected:
  void runFor(platform::TimeInterval interval) { system.runLoop.runFor(interval); }
  /// With the reminder on, as its first reading was asked for and came.
  void startReminder(std::int64_t firstCount, const Dictionary& more = {}) {
    Dictionary settings = more;
    settings.emplace("moveEnabled", true);
    startService(settings);
    runFor(3s);
    steps(firstCount);
  }
  void steps(std::int64_t count) { postResult("steps", {{"steps", count}}); }
  std::string nextStepDate() const {
    const auto date = wrixel2d->scheduler().nextStepReading();
    return date ? platform::description(*date) : "none";
  }
};

// Heart rate -------------------------------------------------------------------------------------

TEST_F(MeasurementSchedulerTest, PeriodicMeasurementsKeepTheirInterval) {
  startService({{"hrInterval", 10}});
  runFor(999ms);
  EXPECT_EQ(timers(kPeriodic), 0U);
  runFor(1ms);
  EXPECT_EQ(timers(kPeriodic), 1U);
  runFor(10min - 1ms);
  EXPECT_EQ(heartRequests(0), 0U) << "none at the start";
  runFor(1ms);
  EXPECT_EQ(heartRequests(0), 1U);
  EXPECT_EQ(requests("Health Kit watchdog kicked with interval 10. Next measurement at 2026-03-02 "
                     "12:20:01 +0000"),
            1U);
  runFor(1h);
  EXPECT_EQ(heartRequests(0), 7U);
  EXPECT_EQ(timers(kPeriodic), 1U);

  // Switched off in what was only read again, the chain still takes its turn and ends with it.
  change("enabled", false, "/hk");
  runFor(1h);
  EXPECT_EQ(heartRequests(0), 8U);
  EXPECT_EQ(timers(kPeriodic), 0U);
}

TEST_F(MeasurementSchedulerTest, VibratesWithAMeasurementOnlyWhenWantedAndNotQuiet) {
  const struct {
    Dictionary settings;
    bool dnd;
    int mode;
  } kCases[] = {
      {{}, false, 0},
      {{{"vibrateHrMeasure", true}}, false, 1},
      {{{"vibrateHrMeasure", true}}, true, 0},
      {{{"vibrateHrMeasure", true}, {"donotdisturb", false}}, true, 1},
      {{{"vibrateHrMeasure", true}, {"continuousHr", true}}, false, 2},
      {{{"vibrateHrMeasure", true}, {"enabled", false}}, false, 1},  // on demand: not looked at
  };
  startService();
  for (const auto& c : kCases) {
    companion->settings = c.settings;
    postPreference("/hk");
    setQuiet(c.dnd);
    system.runLoop.runFor(1s);
    forget();
    postPreference("/measure");
    run();
    EXPECT_EQ(heartRequests(c.mode), 1U);
    EXPECT_TRUE(system.messageCenters.sentMessages("getPrefsDict").empty());
  }
}

TEST_F(MeasurementSchedulerTest, AChangedIntervalMeasuresAtOnceAndStartsAnew) {
  startService();
  runFor(1s);
  change("hrInterval", 20, "/hkInterval");
  EXPECT_EQ(heartRequests(0), 1U);
  ASSERT_EQ(timers(kPeriodic), 1U);
  EXPECT_EQ(system.runLoop.persistentTimers(kPeriodic)[0].remaining, 20min);

  change("continuousHr", true, "/hkInterval");
  EXPECT_EQ(heartRequests(0), 1U);
  EXPECT_EQ(requests(kSkipping), 1U);
  EXPECT_EQ(timers(kPeriodic), 1U);
  runFor(20min);
  EXPECT_EQ(requests(kSkipping), 2U);
  EXPECT_EQ(heartRequests(0), 1U) << "the chain lives on without measuring";
  EXPECT_EQ(timers(kPeriodic), 1U);

  change("hrInterval", 0, "/hkInterval");
  EXPECT_EQ(timers(kPeriodic), 0U);
  change("hrInterval", -1, "/hkInterval");
  ASSERT_EQ(timers(kPeriodic), 1U);
  EXPECT_GT(system.runLoop.persistentTimers(kPeriodic)[0].remaining, 24h * 365 * 99)
      << "an interval from a negative setting never comes";
  set("enabled", false);
  change("hrInterval", 20, "/hkInterval");
  EXPECT_EQ(timers(kPeriodic), 0U);
  EXPECT_EQ(heartRequests(0), 1U);
}

TEST_F(MeasurementSchedulerTest, ContinuousMeasurementIsAskedForEveryHalfMinute) {
  startService({{"continuousHr", true}});
  runFor(1s);
  EXPECT_EQ(timers(kContinuous), 1U);
  EXPECT_EQ(heartRequests(2), 0U);
  runFor(30s - 1ms);
  EXPECT_EQ(heartRequests(2), 0U);
  runFor(1ms);
  EXPECT_EQ(heartRequests(2), 1U);
  runFor(5min);
  EXPECT_EQ(heartRequests(2), 11U);
  EXPECT_EQ(requests("Continuous heart rate watchdog kicked"), 12U);

  change("continuousHr", false, "/hk");
  runFor(1min);
  EXPECT_EQ(heartRequests(2), 11U) << "the chain ends at its next turn";
  EXPECT_EQ(timers(kContinuous), 0U);
}

TEST_F(MeasurementSchedulerTest, TheContinuousSwitchIsConfirmedToTheUser) {
  const struct {
    bool isEnabled;
    bool isOn;
    const char* alert;
    std::size_t continuous;  ///< requests of the mode, and chains
    std::size_t plain;       ///< requests that end the band's continuous mode
  } kCases[] = {
      {true, true,
       "Continuous HR Started|Continuous Heart Rate measurement enabled!\n\n"
       "NOTE: This will impact on your MiBand2 and iPhone battery life!",
       1, 0},
      {true, false, "Continuous HR Stopped|Continuous Heart Rate measurement disabled!", 0, 1},
      {false, true, "Tweak Disabled|Continuous Heart Rate measurement disabled!", 0, 1},
  };
  startService();
  for (const auto& c : kCases) {
    forget();
    set("enabled", c.isEnabled);
    change("continuousHr", c.isOn, "/continuous");
    EXPECT_EQ(userAlerts(), UserAlerts{c.alert});
    EXPECT_EQ(heartRequests(2), c.continuous);
    EXPECT_EQ(heartRequests(0), c.plain);
    EXPECT_EQ(timers(kContinuous), c.continuous);
  }
}

TEST_F(MeasurementSchedulerTest, OnlyAResultThatTheUserAskedForIsShown) {
  startService();
  postResult("measure", {{"heartRate", 64}});
  EXPECT_TRUE(userAlerts().empty());
  const struct {
    Dictionary userInfo;
    const char* shown;
  } kCases[] = {{{{"heartRate", 72}}, "72"},
                {{{"heartRate", "81"}}, "81"},
                {{}, "(null)"},
                {{{"heartRate", platform::Array{}}}, "(null)"}};
  for (const auto& c : kCases) {
    system.runLoop.runFor(1s);
    forget();
    postPreference("/measure");
    run();
    postResult("measure", c.userInfo);
    postResult("measure", {{"heartRate", 99}});
    EXPECT_EQ(userAlerts(), UserAlerts{std::string("Heart Rate|Your Heart Rate: ") + c.shown});
  }
}

// Move reminder ----------------------------------------------------------------------------------

TEST_F(MeasurementSchedulerTest, ReadsTheStepsOnTheHourAndRemindsWhoHasNotMoved) {
  startService({{"moveEnabled", true}, {"stepRepeat", 3}});
  runFor(1s);
  EXPECT_EQ(requests("Next fire date: 2026-03-02 12:00:03 +0000, added days: 0, stepsFrom: 8, "
                     "stepsTill: 16, stepsPeriod: 1 lastStepCount 999998"),
            1U);
  runFor(2s);
  EXPECT_EQ(stepRequests(), 1U);
  EXPECT_EQ(nextStepDate(), "none");

  steps(1200);
  EXPECT_EQ(system.log.count(LogLevel::warning, "No steps yet. First time to request it"), 1U);
  EXPECT_EQ(nextStepDate(), "2026-03-02 13:00:00 +0000");
  EXPECT_FALSE(newBandAlert());

  runFor(1h);
  EXPECT_EQ(stepRequests(), 2U);
  steps(1205);
  EXPECT_EQ(newBandAlert(), (BandAlert{3, 6, 0, {}}));
  EXPECT_EQ(nextStepDate(), "2026-03-02 14:00:00 +0000");
}

TEST_F(MeasurementSchedulerTest, WhatCountsAsNotMoved) {
  const char* const kReset = "Steps resetted or faulty step number ";
  const struct {
    const char* what;
    std::int64_t before;
    std::int64_t now;
    Dictionary settings;
    bool dnd;
    bool reminds;
    std::string warning = "";
  } kCases[] = {
      {"few steps", 1200, 1210, {}, false, true},
      {"one more", 1200, 1211, {}, false, false},
      {"none", 1200, 1200, {}, false, true},
      {"counter reset", 5000, 30, {}, false, false, kReset + "30. Last count: 5000"s},
      {"zero", 5000, 0, {}, false, false, kReset + "0. Last count: 5000"s},
      {"zero twice", 0, 0, {}, false, false, kReset + "0. Last count: 0"s},
      {"quiet", 1200, 1205, {}, true, false},
      {"quiet not honoured", 1200, 1205, {{"donotdisturb", false}}, true, true},
      {"off", 1200, 1205, {{"enabled", false}}, false, false},
      {"reminder off", 1200, 1205, {{"moveEnabled", false}}, false, false},
      {"sensitivity", 1200, 1300, {{"sensitivity", 100}}, false, true},
      // A negative number is a huge one: every period counts as one without movement.
      {"negative sensitivity", 1200, 9200, {{"sensitivity", -1}}, false, true},
      {"no reading", 1200, 999999, {}, false, false, "Couldn't get steps, skipping this period"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    startReminder(c.before);
    for (const auto& [key, value] : c.settings) {
      set(key, value);
    }
    postPreference("/hk");
    setQuiet(c.dnd);
    forget();
    steps(c.now);
    EXPECT_EQ(newBandAlert().has_value(), c.reminds);
    EXPECT_EQ(requests("Sending STEP vibration"), c.reminds ? 1U : 0U);
    EXPECT_EQ(lines(LogLevel::warning),
              std::vector<std::string>(c.warning.empty() ? 0 : 1, c.warning));
    const bool isOff = c.settings.contains("enabled") || c.settings.contains("moveEnabled");
    EXPECT_EQ(timers(kStep), isOff ? 0U : 1U);
    EXPECT_EQ(requests("Steps not enabled ..."), isOff ? 1U : 0U);
  }
}

TEST_F(MeasurementSchedulerTest, ASkippedPeriodKeepsItsBaseline) {
  startReminder(1000);
  runFor(1h);
  steps(999999);
  EXPECT_EQ(nextStepDate(), "2026-03-02 14:00:00 +0000");
  runFor(1h);
  steps(1012);
  EXPECT_EQ(requests("Delta steps 12"), 1U) << "over both periods";
  postResult("steps", {{"steps", Dictionary{}}});
  EXPECT_TRUE(system.log.contains(LogLevel::warning, "\"steps\""));
  EXPECT_TRUE(system.log.contains(LogLevel::warning, "faulty step number 0. Last count: 1012"));
}

TEST_F(MeasurementSchedulerTest, AReadingWithoutAnAnswerIsGivenUpAfterThreeMinutes) {
  startReminder(1000);
  system.radio.setState(platform::CentralState::poweredOff);  // the request is dropped unanswered
  runFor(57min + 2min + 57s);
  ASSERT_EQ(platform::description(system.clock.now()), "2026-03-02 13:00:00 +0000");
  EXPECT_EQ(stepRequests(), 2U);
  runFor(3min - 1ms);
  EXPECT_EQ(nextStepDate(), "none");
  EXPECT_EQ(timers(kStep), 1U) << "a sleeping phone wakes for it as well";
  runFor(1ms);
  EXPECT_EQ(nextStepDate(), "2026-03-02 14:00:00 +0000");
  EXPECT_TRUE(system.log.contains(LogLevel::info, "stepsPeriod: 1 lastStepCount 1000"));
  // The answer that comes after all starts the same wait.
  steps(1500);
  EXPECT_EQ(nextStepDate(), "2026-03-02 14:00:00 +0000");
  EXPECT_EQ(timers(kStep), 1U);
}

TEST_F(MeasurementSchedulerTest, AFirstReadingThatFailsAtOnceIsNotRepeatedWithinAMinute) {
  system.radio.setState(platform::CentralState::poweredOff);  // the answers are this test's
  startService({{"moveEnabled", true}});
  runFor(3s);
  ASSERT_EQ(stepRequests(), 1U);
  steps(999999);
  EXPECT_EQ(nextStepDate(), "2026-03-02 12:01:03 +0000");
  runFor(1min);
  EXPECT_EQ(stepRequests(), 2U);
  runFor(90s);
  steps(999999);
  EXPECT_EQ(nextStepDate(), "2026-03-02 12:02:35 +0000") << "a slow failure has waited already";
}

TEST_F(MeasurementSchedulerTest, LeavesTheWindowAndOpensTheNextOneAfresh) {
  system.clock.setWallClock(std::chrono::sys_days(std::chrono::year(2026) / 3 / 2) + 15h + 10min);
  startReminder(7000);
  EXPECT_EQ(nextStepDate(), "2026-03-02 16:00:00 +0000");
  runFor(50min);
  EXPECT_EQ(stepRequests(), 2U);
  steps(7005);
  EXPECT_EQ(requests("Sending STEP vibration"), 1U);
  EXPECT_EQ(nextStepDate(), "2026-03-03 08:00:00 +0000");
  EXPECT_TRUE(system.log.contains(LogLevel::info, "lastStepCount 999998"));
  runFor(16h);
  steps(3);
  EXPECT_EQ(requests("Sending STEP vibration"), 1U);
  EXPECT_EQ(nextStepDate(), "2026-03-03 09:00:00 +0000");
}

TEST_F(MeasurementSchedulerTest, ChangedReminderSettingsForgetTheBaseline) {
  startReminder(1000);
  ASSERT_EQ(nextStepDate(), "2026-03-02 13:00:00 +0000");
  change("stepRepeat", 5, "/move");
  EXPECT_EQ(nextStepDate(), "2026-03-02 13:00:00 +0000") << "nothing that the schedule goes by";
  change("sensitivity", 20, "/move");
  EXPECT_EQ(nextStepDate(), "2026-03-02 12:00:05 +0000");
  runFor(2s);
  steps(1000);
  EXPECT_EQ(requests("Received steps 1000, old steps 999998"), 2U);

  change("moveEnabled", false, "/move");
  EXPECT_EQ(timers(kStep), 0U);
  change("moveEnabled", true, "/move");
  EXPECT_EQ(timers(kStep), 1U);
  change("enabled", false, "/hk");
  change("sensitivity", 30, "/move");
  EXPECT_EQ(timers(kStep), 0U);
}

// Stopwatch --------------------------------------------------------------------------------------

TEST_F(MeasurementSchedulerTest, TheStopwatchIsConfirmedAndItsTimeShown) {
  startService();
  change("stopwatchSwitch", true, "/stopwatchChanged");
  EXPECT_EQ(userAlerts(), UserAlerts{"Stopwatch started|Let's start!"});
  EXPECT_TRUE(manager->isSetTimeActive());

  forget();
  change("stopwatchSwitch", false, "/stopwatchChanged");
  EXPECT_TRUE(userAlerts().empty());
  postResult("stopwatch", {{"timeDifference", "00:01:30"}});
  postResult("stopwatch", {});
  EXPECT_EQ(userAlerts(), (UserAlerts{"Stopwatch stopped|00:01:30", "Stopwatch stopped|(null)"}));

  change("enabled", false, "");
  forget();
  change("stopwatchSwitch", true, "/stopwatchChanged");
  EXPECT_EQ(userAlerts(), UserAlerts{"Tweak is not enabled|Aborting..."});
  EXPECT_FALSE(manager->isSetTimeActive());
}

// Every sequence ---------------------------------------------------------------------------------

TEST_F(MeasurementSchedulerTest, NoChainEverHasTwoTimersAndNoneOutlivesTheSwitch) {
  std::mt19937 random(20260302);
  const auto pick = [&random](std::size_t count) {
    return std::uniform_int_distribution<std::size_t>(0, count - 1)(random);
  };
  const char* const kKeys[] = {"enabled",      "hrInterval",   "continuousHr", "moveEnabled",
                               "onlyWeekdays", "remindPeriod", "startSteps",   "endSteps",
                               "donotdisturb", "sensitivity"};
  const Value kValues[] = {0, 1, 2, 8, 23, 24, -1, "yes", platform::Array{}, 2147483647};
  const char* const kSuffixes[] = {"",      "/hk",         "/measure",         "/hkInterval",
                                   "/move", "/continuous", "/stopwatchChanged"};
  const platform::TimeInterval kPauses[] = {0s, 1ms, 999ms, 1s, 2s, 31s, 3min, 1h};
  system.radio.setState(platform::CentralState::poweredOff);
  startService();
  for (int sequence = 0; sequence < 3000; ++sequence) {
    for (std::size_t action = 0, count = 1 + pick(6); action < count; ++action) {
      companion->settings.insert_or_assign(kKeys[pick(std::size(kKeys))],
                                           kValues[pick(std::size(kValues))]);
      postPreference(kSuffixes[pick(std::size(kSuffixes))]);
      switch (pick(4)) {
        case 0:
          steps(static_cast<std::int64_t>(999990 + pick(10)));
          break;
        case 1:
          runFor(kPauses[pick(std::size(kPauses))]);
          break;
        case 2:
          run();
          break;
        default:
          break;  // several changes in one turn
      }
      for (const auto* identifier : kChains) {
        ASSERT_LE(timers(identifier), 1U) << identifier << " in sequence " << sequence;
      }
    }
    change("enabled", false, "");
    runFor(sequence % 2 == 0 ? 0s : 2s);
    for (const auto* identifier : kChains) {
      ASSERT_EQ(timers(identifier), 0U) << identifier << " in sequence " << sequence;
    }
    change("enabled", true, "");
    forget();
  }
}

}  // namespace
}  // namespace wrixel2::daemon
