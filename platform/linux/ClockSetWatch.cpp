#include "platform/linux/ClockSetWatch.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

namespace wrixel2::platform::linux {

namespace {

constexpr time_t kCentury = 100L * 365 * 24 * 60 * 60;

TimeInterval readClock(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return std::chrono::seconds(time.tv_sec) +
         std::chrono::duration_cast<TimeInterval>(std::chrono::nanoseconds(time.tv_nsec));
}

TimeInterval presentOffset() { return readClock(CLOCK_REALTIME) - readClock(CLOCK_BOOTTIME); }

}  // namespace

ClockSetWatch::~ClockSetWatch() { sd_event_source_disable_unref(source_); }

ErrorOrNone ClockSetWatch::start(sd_event* event, std::function<void()> clockWasSet) {
  clockWasSet_ = std::move(clockWasSet);
  timer_ = FileDescriptor(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer_) {
    return errorFromErrno(errno, "Settings of the clock are not noticed");
  }
  if (auto error = arm()) {
    return error;
  }
  const int result = sd_event_add_io(event, &source_, timer_.get(), EPOLLIN, onReadable, this);
  if (result < 0) {
    return errorFromErrno(-result, "Settings of the clock are not noticed");
  }
  return std::nullopt;
}

ErrorOrNone ClockSetWatch::arm() {
  // First the present, then the watch: a setting between the two is told once too often.
  offset_ = presentOffset();
  itimerspec due{};
  due.it_value.tv_sec = ::time(nullptr) + kCentury;
  if (::timerfd_settime(timer_.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &due, nullptr) !=
      0) {
    return errorFromErrno(errno, "Settings of the clock are not noticed");
  }
  return std::nullopt;
}

int ClockSetWatch::onReadable(sd_event_source* /*source*/, int file, std::uint32_t /*events*/,
                              void* userdata) {
  auto* self = static_cast<ClockSetWatch*>(userdata);
  std::uint64_t ignored = 0;
  [[maybe_unused]] const auto result = ::read(file, &ignored, sizeof(ignored));
  const TimeInterval step = presentOffset() - self->offset_;
  if (self->arm()) {
    // It was armed before by the same call: only a clock beyond its range can refuse it.
    sd_event_source_set_enabled(self->source_, SD_EVENT_OFF);
  }
  if (std::chrono::abs(step) >= kLeastStep) {
    self->clockWasSet_();
  }
  return 0;
}

}  // namespace wrixel2::platform::linux
