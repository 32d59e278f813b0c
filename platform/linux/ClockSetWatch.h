#pragma once

#include <cstdint>
#include <functional>

#include <systemd/sd-event.h>

#include "platform/Date.h"
#include "platform/Result.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {

/// Tells when the wall clock was set, without waking up for anything else: a timerfd of
/// timerfd_create(2) that is cancelled when the clock is set, and due in a century.
class ClockSetWatch {
 public:
  /// Smaller steps are the time service's own care of the clock.
  static constexpr TimeInterval kLeastStep = std::chrono::seconds(1);

  ClockSetWatch() = default;
  ClockSetWatch(const ClockSetWatch&) = delete;
  ClockSetWatch& operator=(const ClockSetWatch&) = delete;
  ~ClockSetWatch();

  /// Once. The callback is called in a turn of the loop.
  ErrorOrNone start(sd_event* event, std::function<void()> clockWasSet);

 private:
  static int onReadable(sd_event_source* source, int file, std::uint32_t events, void* userdata);
  ErrorOrNone arm();

  std::function<void()> clockWasSet_;
  FileDescriptor timer_;
  sd_event_source* source_ = nullptr;
  /// Of the wall clock from the clock that counts from the start of the machine.
  TimeInterval offset_{};
};

}  // namespace wrixel2::platform::linux
