#include <string>

#include <gtest/gtest.h>

#include "platform/Date.h"

namespace wrixel2::platform {
namespace {

/// Central European rules for 2026: summer time from 29 March to 25 October, each at 01:00 UTC.
class CentralEurope2026 final : public TimeZone {
 public:
  int secondsFromGMT(Date date) const override {
    using namespace std::chrono;
    const Date start = sys_days(March / 29 / 2026) + hours(1);
    const Date end = sys_days(October / 25 / 2026) + hours(1);
    return date >= start && date < end ? 7200 : 3600;
  }
};

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
  struct Case {
    DateComponents components;
    std::string expected;
  };
  const Case cases[] = {
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
  const CentralEurope2026 zone;
  struct Case {
    std::string name;
    DateComponents local;
    std::string utc;
  };
  const Case cases[] = {
      {"before the change", {2026, 3, 29, 1, 59, 59}, "2026-03-29 00:59:59 +0000"},
      {"skipped: the offset before the change",
       {2026, 3, 29, 2, 30, 0},
       "2026-03-29 01:30:00 +0000"},
      {"after the change", {2026, 3, 29, 3, 0, 0}, "2026-03-29 01:00:00 +0000"},
      {"twice: the earlier", {2026, 10, 25, 2, 30, 0}, "2026-10-25 00:30:00 +0000"},
      {"after both", {2026, 10, 25, 3, 0, 0}, "2026-10-25 02:00:00 +0000"},
  };
  for (const auto& [name, local, utc] : cases) {
    EXPECT_EQ(description(dateFromComponents(local, zone)), utc) << name;
  }
}

TEST(Date, ZonesExistWithinEighteenHours) {
  EXPECT_TRUE(FixedTimeZone::isValidOffset(18 * 3600));
  EXPECT_TRUE(FixedTimeZone::isValidOffset(-18 * 3600));
  EXPECT_FALSE(FixedTimeZone::isValidOffset(18 * 3600 + 1));
  EXPECT_FALSE(FixedTimeZone::isValidOffset(-28'800'000));
}

}  // namespace
}  // namespace wrixel2::platform
