#pragma once

#include "platform/Clock.h"

namespace wrixel2::platform::simulated {

/// Both clocks on virtual time: they move only when told to. The wall clock starts at
/// 2026-03-02 12:00:00 UTC, a Monday.
class SimulatedClock final : public Clock {
 public:
  MonotonicTime monotonicNow() const override { return monotonic_; }
  Date now() const override { return wallAtZero_ + monotonic_.time_since_epoch(); }

  /// Sets the wall clock, as the user or the network does; the monotonic clock does not move.
  void setWallClock(Date date) { wallAtZero_ = date - monotonic_.time_since_epoch(); }

  /// Lets time pass on both clocks without running anything: also what a call that blocks the loop
  /// does. What falls due meanwhile is late.
  void advance(TimeInterval interval) { monotonic_ += interval; }

 private:
  MonotonicTime monotonic_{std::chrono::hours(1)};
  Date wallAtZero_ =
      std::chrono::sys_days(std::chrono::year(2026) / 3 / 2) + std::chrono::hours(11);
};

}  // namespace wrixel2::platform::simulated
