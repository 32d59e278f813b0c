#include "platform/Date.h"

#include <cstdlib>

#include <fmt/format.h>

namespace wrixel2::platform {
namespace {

/// A wall-clock reading without a zone.
using LocalTime = std::chrono::local_time<TimeInterval>;

/// The calendar repeats after this span; years are brought into the first one because the library's
/// year type ends at 32767 and a band can claim any 16-bit year.
constexpr int kCycleYears = 400;
constexpr std::chrono::days kCycle(146097);

int floorDivide(int value, int divisor) { return value / divisor - (value % divisor < 0 ? 1 : 0); }

LocalTime localTimeFromComponents(const DateComponents& components) {
  const int cycles = floorDivide(components.year, kCycleYears);
  const auto firstOfMonth =
      std::chrono::year(components.year - cycles * kCycleYears) / std::chrono::January / 1 +
      std::chrono::months(components.month - 1);
  return LocalTime(std::chrono::local_days(firstOfMonth)) + cycles * kCycle +
         std::chrono::days(components.day - 1) + std::chrono::hours(components.hour) +
         std::chrono::minutes(components.minute) + std::chrono::seconds(components.second);
}

Date readWithOffset(LocalTime local, int offset) {
  return Date(local.time_since_epoch()) - std::chrono::seconds(offset);
}

}  // namespace

bool FixedTimeZone::isValidOffset(long long secondsFromGMT) {
  constexpr long long limit = 18LL * 60 * 60;
  return secondsFromGMT >= -limit && secondsFromGMT <= limit;
}

DateComponents componentsFromDate(Date date, const TimeZone& zone) {
  const auto local = date + std::chrono::seconds(zone.secondsFromGMT(date));
  const auto day = std::chrono::floor<std::chrono::days>(local);
  const int cycles = floorDivide(static_cast<int>(day.time_since_epoch().count()),
                                 static_cast<int>(kCycle.count()));
  const std::chrono::year_month_day civil(day - cycles * kCycle);
  const std::chrono::hh_mm_ss timeOfDay(std::chrono::floor<std::chrono::seconds>(local - day));
  return {.year = static_cast<int>(civil.year()) + cycles * kCycleYears,
          .month = static_cast<int>(static_cast<unsigned>(civil.month())),
          .day = static_cast<int>(static_cast<unsigned>(civil.day())),
          .hour = static_cast<int>(timeOfDay.hours().count()),
          .minute = static_cast<int>(timeOfDay.minutes().count()),
          .second = static_cast<int>(timeOfDay.seconds().count()),
          .weekday = static_cast<int>(std::chrono::weekday(day).c_encoding()) + 1};
}

Date dateFromComponents(const DateComponents& components, const TimeZone& zone) {
  const LocalTime local = localTimeFromComponents(components);
  // The offsets a day before and a day after bracket a clock change near the wanted time; trying
  // the earlier offset first yields the first of two readings, and is the rule for a skipped one.
  const Date roughly(local.time_since_epoch());
  const int before = zone.secondsFromGMT(roughly - std::chrono::days(1));
  const int after = zone.secondsFromGMT(roughly + std::chrono::days(1));
  const Date withBefore = readWithOffset(local, before);
  if (zone.secondsFromGMT(withBefore) == before) {
    return withBefore;
  }
  const Date withAfter = readWithOffset(local, after);
  return zone.secondsFromGMT(withAfter) == after ? withAfter : withBefore;
}

std::string description(Date date) {
  const auto utc = componentsFromDate(date, FixedTimeZone(0));
  return fmt::format("{:04}-{:02}-{:02} {:02}:{:02}:{:02} +0000", utc.year, utc.month, utc.day,
                     utc.hour, utc.minute, utc.second);
}

}  // namespace wrixel2::platform
