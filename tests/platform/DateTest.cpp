#include <string>

#include <gtest/gtest.h>

#include "platform/Date.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::platform {
namespace {

TEST(Date, ShowsWhatTheCalendarShows) {
  const Date date = std::chrono::sys_days(std::chrono::year(2026) / 3 / 1) +
                    std::chrono::hours(23) + std::chrono::seconds(61);
  EXPECT_EQ(description(date), "2026-03-01 23:01:01 +0000");
  const DateComponents inIndia = {2026, 3, 2, 4, 31, 1, 2};
  EXPECT_EQ(componentsFromDate(date, FixedTimeZone(19800)), inIndia);
  EXPECT_EQ(dateFromComponents(inIndia, FixedTimeZone(19800)), date);
  EXPECT_EQ(componentsFromDate(date, FixedTimeZone(0)).weekday, 1) << "a Sunday";
}

TEST(Date, ComponentsOutOfRangeRollOver) {
  const std::pair<DateComponents, std::string> cases[] = {
      {{2026, 13, 1, 0, 0, 0}, "2027-01-01 00:00:00 +0000"},
      {{2026, 0, 1, 0, 0, 0}, "2025-12-01 00:00:00 +0000"},
      {{2026, 2, 30, 24, 60, 60}, "2026-03-03 01:01:00 +0000"},
      {{2024, 2, 29, 0, 0, 0}, "2024-02-29 00:00:00 +0000"},
      {{65535, 255, 255, 255, 255, 255}, "65556-11-20 19:19:15 +0000"},
      {{0, 0, 0, 0, 0, 0}, "-001-11-30 00:00:00 +0000"},
  };
  for (const auto& [components, expected] : cases) {
    EXPECT_EQ(description(dateFromComponents(components, FixedTimeZone(0))), expected);
  }
}

TEST(Date, ClockChangesAreReadByOneRule) {
  // Summer time from 29 March to 25 October 2026, each at 01:00 UTC.
  simulated::SimulatedTimeZone zone;
  zone.setCentralEurope();
  const std::pair<DateComponents, std::string> cases[] = {
      {{2026, 3, 29, 1, 59, 59}, "2026-03-29 00:59:59 +0000"},
      {{2026, 3, 29, 2, 30, 0}, "2026-03-29 01:30:00 +0000"},  // skipped: the offset before it
      {{2026, 3, 29, 3, 0, 0}, "2026-03-29 01:00:00 +0000"},
      {{2026, 10, 25, 2, 30, 0}, "2026-10-25 00:30:00 +0000"},  // twice: the earlier
      {{2026, 10, 25, 3, 0, 0}, "2026-10-25 02:00:00 +0000"},
  };
  for (const auto& [local, utc] : cases) {
    EXPECT_EQ(description(dateFromComponents(local, zone)), utc);
  }
}

TEST(Date, ZonesExistWithinEighteenHours) {
  for (const auto& [offset, isValid] : {std::pair{18 * 3600, true},
                                        {-18 * 3600, true},
                                        {18 * 3600 + 1, false},
                                        {-28'800'000, false}}) {
    EXPECT_EQ(FixedTimeZone::isValidOffset(offset), isValid) << offset;
  }
}

}  // namespace
}  // namespace wrixel2::platform
