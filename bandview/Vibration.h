#pragma once

#include "platform/Clock.h"

namespace wrixel2::bandview {

/// A vibration pattern in progress: so many times on and off.
struct Vibration {
  platform::TimeInterval on{};
  platform::TimeInterval off{};
  unsigned count = 0;
  platform::MonotonicTime start{};

  /// The last pause does not count.
  platform::MonotonicTime end() const {
    return on.count() > 0 && count > 0 ? start + on * count + off * (count - 1) : start;
  }
  bool isOver(platform::MonotonicTime now) const { return now >= end(); }
  /// Whether the motor runs.
  bool isOn(platform::MonotonicTime now) const {
    return !isOver(now) && (now - start) % (on + off) < on;
  }
};

}  // namespace wrixel2::bandview
