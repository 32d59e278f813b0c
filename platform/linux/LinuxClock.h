#pragma once

#include "platform/Clock.h"

namespace wrixel2::platform::linux {

/// CLOCK_BOOTTIME and CLOCK_REALTIME.
class LinuxClock final : public Clock {
 public:
  MonotonicTime monotonicNow() const override;
  Date now() const override;
};

}  // namespace wrixel2::platform::linux
