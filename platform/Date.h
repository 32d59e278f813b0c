#pragma once

#include <chrono>
#include <string>

namespace wrixel2::platform {

/// A length of time. Protocol pauses are given in seconds or milliseconds and convert without loss.
using TimeInterval = std::chrono::microseconds;

/// A point on the wall clock, in UTC.
using Date = std::chrono::sys_time<std::chrono::microseconds>;

/// Seconds with a fraction, as settings and models give them.
constexpr TimeInterval seconds(double count) {
  return std::chrono::duration_cast<TimeInterval>(std::chrono::duration<double>(count));
}

/// What a calendar shows of a date in one time zone.
struct DateComponents {
  int year = 1970;
  int month = 1;    ///< 1..12
  int day = 1;      ///< 1..31
  int hour = 0;     ///< 0..23
  int minute = 0;   ///< 0..59
  int second = 0;   ///< 0..59
  int weekday = 0;  ///< 1 = Sunday .. 7 = Saturday; not read when a date is made

  friend bool operator==(const DateComponents&, const DateComponents&) = default;
};

/// A rule that says how far local time is from GMT at any moment.
class TimeZone {
 public:
  virtual ~TimeZone() = default;
  /// Seconds east of GMT in force at the date, daylight saving included.
  virtual int secondsFromGMT(Date date) const = 0;

 protected:
  TimeZone() = default;
  TimeZone(const TimeZone&) = default;
  TimeZone& operator=(const TimeZone&) = default;
};

/// A zone that never changes. Valid offsets lie within ±18 hours; see isValidOffset.
class FixedTimeZone final : public TimeZone {
 public:
  explicit FixedTimeZone(int secondsFromGMT) : offset_(secondsFromGMT) {}
  int secondsFromGMT(Date) const override { return offset_; }

  /// Whether a time zone of that many seconds from GMT exists at all (±18 hours).
  static bool isValidOffset(long long secondsFromGMT);

 private:
  int offset_;
};

/// The Gregorian calendar's view of the date in the zone, weekday included.
DateComponents componentsFromDate(Date date, const TimeZone& zone);

/// The date of the components in the zone. Components out of their range roll over (month 13 is
/// January of the next year). A local time that a clock change skips is read with the offset in
/// force before the change; one that occurs twice is the earlier.
Date dateFromComponents(const DateComponents& components, const TimeZone& zone);

/// "2026-03-01 07:04:05 +0000", in UTC, as dates stand in the log.
std::string description(Date date);

}  // namespace wrixel2::platform
