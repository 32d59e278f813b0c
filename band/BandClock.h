#pragma once

#include <cstdint>

#include "platform/Bytes.h"
#include "platform/Clock.h"
#include "platform/Error.h"

namespace wrixel2::band {

/// The band's clock: shows local time, and runs on from whatever it was last set to. It needs no
/// timer; the time is worked out when it is asked for.
///
/// Its 11 bytes: year (16 bits, little-endian), month, day, hour, minute, second, weekday (1 is
/// Sunday), two bytes of zero, and the time zone in quarter hours, which it keeps as it was given.
///
/// It has a calendar of its own, so that it contradicts a host that reckons wrongly.
class BandClock {
 public:
  /// Set to the local time of now. The clock is borrowed.
  BandClock(const platform::Clock& clock, const platform::TimeZone& zone);

  platform::Bytes bytes() const;
  /// The present date in the 8 bytes of other values: as above without weekday and zeros; an
  /// earlier one by so much.
  platform::Bytes shortDate(platform::TimeInterval ago) const;

  /// Sets it. An error of the attribute protocol for another length, a date that does not exist or
  /// is another weekday, and a time zone that is neither -12 to 14 hours nor unknown (-128).
  platform::ErrorOrNone set(platform::ByteView bytes);

 private:
  /// Year (2 bytes), month, day, hour, minute and second of so long ago.
  platform::Bytes shownAt(platform::TimeInterval ago) const;

  const platform::Clock& clock_;
  platform::MonotonicTime setAt_;
  platform::Date shown_;  ///< at setAt_: the local time, kept as if it were UTC
  std::uint8_t quarterHours_ = 0;
};

}  // namespace wrixel2::band
