#pragma once

#include <chrono>

#include "platform/Date.h"

namespace wrixel2::platform {

/// Tag of the monotonic clock that also counts while the phone sleeps (CLOCK_BOOTTIME).
struct BootTime {
  using duration = TimeInterval;
  using rep = duration::rep;
  using period = duration::period;
  using time_point = std::chrono::time_point<BootTime>;
  static constexpr bool is_steady = true;
};

/// A moment on the monotonic clock; setting the wall clock does not move it.
using MonotonicTime = std::chrono::time_point<BootTime>;

/// Both clocks of the platform.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual MonotonicTime monotonicNow() const = 0;
  virtual Date now() const = 0;
};

}  // namespace wrixel2::platform
