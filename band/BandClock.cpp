#include "band/BandClock.h"

#include <array>
#include <chrono>

#include "band/BandProfile.h"
#include "platform/Date.h"

namespace wrixel2::band {

namespace {

constexpr std::size_t kTimeLength = 11;
constexpr int kSecondsPerQuarter = 15 * 60;

std::uint8_t byte(int value) { return static_cast<std::uint8_t>(value); }

/// 1 is Sunday. By Sakamoto's rule, from the date as it stands.
int weekdayOf(int year, int month, int day) {
  constexpr std::array kDaysBeforeMonth{0, 3, 2, 5, 0, 3, 5, 1, 4, 6, 2, 4};
  year -= month < 3 ? 1 : 0;
  return (year + year / 4 - year / 100 + year / 400 +
          kDaysBeforeMonth.at(static_cast<std::size_t>(month) - 1) + day) %
             7 +
         1;
}

/// The zones there are, in quarter hours (GATT Specification Supplement, Time Zone).
bool isZone(std::int8_t quarterHours) {
  constexpr int kUnknown = -128;
  return (quarterHours >= -48 && quarterHours <= 56) || quarterHours == kUnknown;
}

}  // namespace

BandClock::BandClock(const platform::Clock& clock, const platform::TimeZone& zone)
    : clock_(clock), setAt_(clock.monotonicNow()) {
  const int offset = zone.secondsFromGMT(clock.now());
  shown_ = clock.now() + std::chrono::seconds(offset);
  quarterHours_ = byte(offset / kSecondsPerQuarter);
}

platform::Bytes BandClock::shownAt(platform::TimeInterval ago) const {
  const auto shown = shown_ + (clock_.monotonicNow() - setAt_) - ago;
  const auto midnight = std::chrono::floor<std::chrono::days>(shown);
  const std::chrono::year_month_day date(midnight);
  const std::chrono::hh_mm_ss time(std::chrono::floor<std::chrono::seconds>(shown - midnight));
  const int year = static_cast<int>(date.year());
  return {byte(year),
          byte(year >> 8),
          byte(static_cast<int>(static_cast<unsigned>(date.month()))),
          byte(static_cast<int>(static_cast<unsigned>(date.day()))),
          byte(static_cast<int>(time.hours().count())),
          byte(static_cast<int>(time.minutes().count())),
          byte(static_cast<int>(time.seconds().count()))};
}

platform::Bytes BandClock::bytes() const {
  auto value = shownAt({});
  const int weekday = weekdayOf(value[0] | value[1] << 8, value[2], value[3]);
  value.insert(value.end(), {byte(weekday), 0, 0, quarterHours_});
  return value;
}

platform::Bytes BandClock::shortDate(platform::TimeInterval ago) const {
  auto value = shownAt(ago);
  value.push_back(quarterHours_);
  return value;
}

platform::ErrorOrNone BandClock::set(platform::ByteView bytes) {
  if (bytes.size() != kTimeLength) {
    return platform::Error{att_error::invalidAttributeValueLength, "A time has 11 bytes"};
  }
  const int year = bytes[0] | bytes[1] << 8;
  const auto date = std::chrono::year(year) / bytes[2] / bytes[3];
  // Year 0 is what an unset host clock would send; the calendar itself has one.
  if (year == 0 || year > int{std::chrono::year::max()} || !date.ok() || bytes[4] > 23 ||
      bytes[5] > 59 || bytes[6] > 59) {
    return platform::Error{att_error::valueNotAllowed, "There is no such time"};
  }
  if (bytes[7] != weekdayOf(year, bytes[2], bytes[3])) {
    return platform::Error{att_error::valueNotAllowed, "That date is another weekday"};
  }
  if (!isZone(static_cast<std::int8_t>(bytes[10]))) {
    return platform::Error{att_error::valueNotAllowed, "There is no such time zone"};
  }
  shown_ = std::chrono::sys_days(date) + std::chrono::hours(bytes[4]) +
           std::chrono::minutes(bytes[5]) + std::chrono::seconds(bytes[6]);
  setAt_ = clock_.monotonicNow();
  quarterHours_ = bytes[10];
  return std::nullopt;
}

}  // namespace wrixel2::band
