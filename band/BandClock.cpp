#include "band/BandClock.h"

#include <chrono>

#include "band/BandProfile.h"
#include "platform/Date.h"

namespace wrixel2::band {

namespace {

constexpr std::size_t kTimeLength = 11;
constexpr int kSecondsPerQuarter = 15 * 60;

std::uint8_t byte(int value) { return static_cast<std::uint8_t>(value); }

platform::DateComponents componentsShown(platform::Date shown) {
  return platform::componentsFromDate(shown, platform::FixedTimeZone(0));
}

}  // namespace

BandClock::BandClock(const platform::Clock& clock, const platform::TimeZone& zone)
    : clock_(clock), setAt_(clock.monotonicNow()) {
  const int offset = zone.secondsFromGMT(clock.now());
  shown_ = clock.now() + std::chrono::seconds(offset);
  quarterHours_ = byte(offset / kSecondsPerQuarter);
}

platform::Date BandClock::shownNow() const { return shown_ + (clock_.monotonicNow() - setAt_); }

platform::Bytes BandClock::bytes() const {
  const auto now = componentsShown(shownNow());
  return {byte(now.year),
          byte(now.year >> 8),
          byte(now.month),
          byte(now.day),
          byte(now.hour),
          byte(now.minute),
          byte(now.second),
          byte(now.weekday),
          0,
          0,
          quarterHours_};
}

platform::Bytes BandClock::shortDate(platform::TimeInterval ago) const {
  const auto date = componentsShown(shownNow() - ago);
  return {byte(date.year), byte(date.year >> 8), byte(date.month),  byte(date.day),
          byte(date.hour), byte(date.minute),    byte(date.second), quarterHours_};
}

platform::ErrorOrNone BandClock::set(platform::ByteView bytes) {
  if (bytes.size() != kTimeLength) {
    return platform::Error{att_error::invalidAttributeValueLength, "A time has 11 bytes"};
  }
  platform::DateComponents components;
  components.year = bytes[0] | bytes[1] << 8;
  components.month = bytes[2];
  components.day = bytes[3];
  components.hour = bytes[4];
  components.minute = bytes[5];
  components.second = bytes[6];
  const std::chrono::year_month_day day(std::chrono::year(components.year),
                                        std::chrono::month(bytes[2]), std::chrono::day(bytes[3]));
  // Year 0 is what an unset host clock would send; the calendar itself has one.
  if (components.year == 0 || components.year > int{std::chrono::year::max()} || !day.ok() ||
      components.hour > 23 || components.minute > 59 || components.second > 59) {
    return platform::Error{att_error::valueNotAllowed, "There is no such time"};
  }
  shown_ = platform::dateFromComponents(components, platform::FixedTimeZone(0));
  setAt_ = clock_.monotonicNow();
  quarterHours_ = bytes[10];
  return std::nullopt;
}

}  // namespace wrixel2::band
