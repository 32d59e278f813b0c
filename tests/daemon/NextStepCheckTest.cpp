#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "daemon/NextStepCheck.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::daemon {
namespace {

using platform::Date;
using platform::DateComponents;
using platform::description;
using platform::simulated::SimulatedTimeZone;
using namespace std::chrono_literals;

constexpr std::uint64_t unsignedOf(std::int64_t value) { return static_cast<std::uint64_t>(value); }

/// "03-03 09:20:00" of 2026, or "2028-02-28 17:00:00", in the zone.
Date at(std::string text, const platform::TimeZone& zone) {
  if (text.size() < 19) {
    text.insert(0, "2026-");
  }
  DateComponents c;
  EXPECT_EQ(std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d", &c.year, &c.month, &c.day, &c.hour,
                        &c.minute, &c.second),
            6)
      << text;
  return dateFromComponents(c, zone);
}

MoveSettings window(std::uint64_t start, std::uint64_t end, std::uint64_t period,
                    bool onlyWeekdays = true) {
  MoveSettings settings;
  settings.startSteps = start;
  settings.endSteps = end;
  settings.remindPeriod = period;
  settings.onlyWeekdays = onlyWeekdays;
  return settings;
}

TEST(NextStepCheckTest, InTheListedSituations) {
  const auto day = window(8, 16, 1);
  const auto everyDay = window(8, 16, 1, false);
  const auto night = window(22, 6, 1, false);
  const auto workNight = window(22, 6, 1);
  const struct {
    const char* what;
    MoveSettings settings;
    const char* now;
    const char* next;
    std::uint64_t addedDays = 0;
    bool forgetsBaseline = false;
    bool hasBaseline = true;
  } kCases[] = {
      // 2026-03-03 is a Tuesday.
      {"first reading", day, "03-03 09:20:00", "03-03 09:20:02", 0, false, false},
      {"first, over midnight", workNight, "03-03 23:59:59", "03-04 00:00:01", 0, false, false},
      {"at the opening", day, "03-03 08:00:00", "03-03 09:00:00"},
      {"before the opening", day, "03-03 07:59:59", "03-03 08:00:00", 0, true},
      {"at the end", day, "03-03 16:00:00", "03-04 08:00:00", 1, true},
      {"a moment early is the next hour", day, "03-03 09:59:58", "03-03 11:00:00"},
      // Saturday itself is looked at then.
      {"Friday evening", day, "03-06 16:00:00", "03-07 08:00:00", 1, true},
      {"Saturday's first moment", day, "03-07 00:00:00", "03-09 08:00:00", 2, true},
      {"night, at the end", night, "03-03 06:00:00", "03-03 22:00:00", 0, true},
      {"leap day", everyDay, "2028-02-28 17:00:00", "2028-02-29 08:00:00", 1, true},
      {"weekend at new year", day, "2033-12-31 10:00:00", "2034-01-02 08:00:00", 2, true},
      {"night at new year", night, "12-31 23:20:00", "2027-01-01 00:00:00"},
      // Deliberate: the two seconds are added before the day is taken.
      {"last seconds of a day", everyDay, "03-03 23:59:58", "03-05 08:00:00", 1, true},
  };
  SimulatedTimeZone zone;
  zone.setSecondsFromGMT(-5 * 3600);
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const auto check = nextStepCheck(at(c.now, zone), zone, c.settings, c.hasBaseline);
    ASSERT_TRUE(check);
    EXPECT_EQ(description(check->fireDate), description(at(c.next, zone)));
    EXPECT_EQ(check->addedDays, c.addedDays);
    EXPECT_EQ(check->forgetsBaseline, c.forgetsBaseline);
  }
}

TEST(NextStepCheckTest, HasNoMomentInSettingsThatLeaveNone) {
  const struct {
    const char* what;
    MoveSettings settings;
  } kCases[] = {
      {"no period", window(8, 16, 0)},
      {"a period of a day", window(0, 23, 24)},
      {"an opening hour that is none", window(24, 6, 1)},
      {"an end hour that is none", window(8, 24, 1)},
      {"a negative period, which wraps into the window", window(8, 16, unsignedOf(-1))},
      {"a negative opening hour", window(unsignedOf(-1), 16, 1)},
      {"a negative end hour", window(8, unsignedOf(-2), 1)},
      {"everything negative", window(unsignedOf(-1), unsignedOf(-2), unsignedOf(-3))},
  };
  const SimulatedTimeZone zone;
  for (const auto& c : kCases) {
    for (int hour = 0; hour < 24; ++hour) {
      const Date now = at("03-03 00:10:00", zone) + std::chrono::hours(hour);
      EXPECT_FALSE(nextStepCheck(now, zone, c.settings, true)) << c.what;
      EXPECT_FALSE(nextStepCheck(now, zone, c.settings, false)) << c.what;
    }
  }
}

TEST(NextStepCheckTest, FollowsTheClocksThroughDaylightSaving) {
  const auto day = window(8, 16, 1, false);
  const auto night = window(22, 6, 1, false);
  const auto slowNight = window(22, 6, 2, false);
  const auto early = window(2, 9, 1, false);
  const struct {
    const char* what;
    MoveSettings settings;
    const char* nowUtc;
    const char* nextUtc;
    bool hasBaseline = true;
  } kCases[] = {
      // Central Europe: 02:00 becomes 03:00 on 2026-03-29 at 01:00 UTC.
      {"over the hour that is left out", night, "03-29 00:20:00", "03-29 01:00:00"},
      {"two hours over it", slowNight, "03-29 00:20:00", "03-29 02:00:00"},
      {"next morning, in summer time", day, "03-28 17:00:00", "03-29 06:00:00"},
      {"opens in the hour left out", early, "03-28 17:00:00", "03-29 01:00:00"},
      // 03:00 becomes 02:00 on 2026-10-25 at 01:00 UTC: 02:30 comes at 00:30 and at 01:30 UTC.
      {"into the hour that comes twice", night, "10-24 23:30:00", "10-25 00:00:00"},
      {"from its first to its second time", night, "10-25 00:30:00", "10-25 01:00:00"},
      {"two hours, to its second time", slowNight, "10-24 23:30:00", "10-25 01:00:00"},
      {"out of its second time", night, "10-25 01:30:00", "10-25 02:00:00"},
      {"first reading in its second", night, "10-25 01:30:00", "10-25 01:30:02", false},
      {"next morning, in winter time", day, "10-24 17:00:00", "10-25 07:00:00"},
  };
  SimulatedTimeZone zone;
  zone.setCentralEurope();
  const SimulatedTimeZone gmt;
  for (const auto& c : kCases) {
    const auto check = nextStepCheck(at(c.nowUtc, gmt), zone, c.settings, c.hasBaseline);
    ASSERT_TRUE(check) << c.what;
    EXPECT_EQ(description(check->fireDate), description(at(c.nextUtc, gmt))) << c.what;
  }
}

/// The rules as they are told to users, one after the other: days until the next window, if any.
std::optional<int> daysByTheRules(const MoveSettings& settings, int weekday, std::uint64_t hour) {
  const auto start = settings.startSteps;
  const auto end = settings.endSteps;
  const auto period = settings.remindPeriod;
  if (settings.onlyWeekdays && (weekday == 7 || weekday == 1)) return weekday == 7 ? 2 : 1;
  if (hour < start && start < end) return 0;
  if (hour < start && start > end && hour + period > end) return 0;
  if (hour + period > end && (start <= end || (hour < start && (hour + period) % 24 > end))) {
    return 1;
  }
  return std::nullopt;
}

TEST(NextStepCheckTest, ObeysTheRulesInEveryWindowAtEveryHour) {
  const SimulatedTimeZone zone;
  const Date week = at("03-01 00:00:00", zone);  // a Sunday
  std::size_t checked = 0;
  for (std::uint64_t start = 0; start < 24; ++start) {
    for (std::uint64_t end = 0; end < 24; ++end) {
      for (const std::uint64_t period : {1U, 2U, 3U, 8U, 23U}) {
        for (int hourOfWeek = 0; hourOfWeek < 7 * 24; ++hourOfWeek) {
          const auto settings = window(start, end, period, (hourOfWeek + start) % 2 == 0);
          const Date now = week + std::chrono::hours(hourOfWeek) + 25min;
          const auto check = nextStepCheck(now, zone, settings, true);
          const bool isValid = start != end && start + period < (start < end ? end : end + 24);
          ASSERT_EQ(check.has_value(), isValid);
          if (!check) {
            continue;
          }
          ++checked;
          const int hour = hourOfWeek % 24;
          const auto days =
              daysByTheRules(settings, hourOfWeek / 24 + 1, static_cast<std::uint64_t>(hour));
          const Date expected = days ? std::chrono::floor<std::chrono::days>(now) +
                                           std::chrono::days(*days) + std::chrono::hours(start)
                                     : now - 25min + std::chrono::hours(period);
          ASSERT_TRUE(check->fireDate == expected && check->forgetsBaseline == days.has_value())
              << start << " to " << end << " by " << period << " at " << description(now);
        }
      }
    }
  }
  EXPECT_GT(checked, 100'000U);
}

TEST(NextStepCheckTest, NoTwoChecksOfAChainComeWithinAMinute) {
  std::mt19937 random(20260303);
  const auto pick = [&random](int from, int to) {
    return std::uniform_int_distribution(from, to)(random);
  };
  SimulatedTimeZone zone;
  zone.setCentralEurope();
  for (int chain = 0; chain < 500; ++chain) {
    const auto settings =
        window(static_cast<std::uint64_t>(pick(0, 23)), static_cast<std::uint64_t>(pick(0, 23)),
               static_cast<std::uint64_t>(pick(1, 6)), pick(0, 1) == 0);
    // Anywhere in the year, with a clock change within the next weeks half of the time.
    Date now = at(pick(0, 1) == 0 ? "03-20 00:00:00" : "10-15 00:00:00", zone) +
               std::chrono::seconds(pick(0, 20 * 86400));
    auto check = nextStepCheck(now, zone, settings, true);
    for (int i = 0; i < 100 && check; ++i) {
      const Date fired = check->fireDate;
      // The band answers after a while.
      now = fired + std::chrono::milliseconds(pick(0, 20'000));
      check = nextStepCheck(now, zone, settings, true);
      ASSERT_TRUE(check) << description(now);
      ASSERT_GE(check->fireDate - fired, 1min) << description(fired);
    }
  }
}

}  // namespace
}  // namespace wrixel2::daemon
