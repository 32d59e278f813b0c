#include "platform/linux/LinuxClock.h"

#include <time.h>

namespace wrixel2::platform::linux {
namespace {

TimeInterval read(clockid_t clock) {
  timespec now{};
  ::clock_gettime(clock, &now);
  return std::chrono::seconds(now.tv_sec) +
         std::chrono::duration_cast<TimeInterval>(std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace

MonotonicTime LinuxClock::monotonicNow() const { return MonotonicTime(read(CLOCK_BOOTTIME)); }

Date LinuxClock::now() const { return Date(read(CLOCK_REALTIME)); }

}  // namespace wrixel2::platform::linux
