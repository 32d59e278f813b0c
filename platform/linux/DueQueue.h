#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <utility>

#include <systemd/sd-event.h>
#include <time.h>

#include "platform/Date.h"
#include "platform/RunLoop.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {

/// A pending timer of a DueQueue.
struct DueEntry {
  std::int64_t due = 0;        ///< microseconds on the queue's clock
  std::uint64_t sequence = 0;  ///< ties are first in, first out; given by the queue
  TimeInterval interval{};     ///< of a repeating timer; 0 fires once
  bool wakes = false;          ///< wakes a sleeping phone
  bool isPending = false;
  Task callback;
  /// What the local calendar showed of a fire date when the timer was made.
  DateComponents local;
  int offset = 0;  ///< seconds from GMT that were in force then
};

/// Timers on one clock, run in the order of their due times, each in a turn of its own.
///
/// All of them are dispatched by a plain timerfd. One with the alarm clock, armed for the earliest
/// timer that wakes, does nothing but bring the phone back from sleep: without the right to it the
/// timers are merely late while the phone sleeps.
class DueQueue {
 public:
  /// An alarm that is due this soon makes the kernel refuse to suspend: it is left to the plain
  /// clock.
  static constexpr TimeInterval kAlarmThreshold = std::chrono::seconds(2);

  struct Clocks {
    clockid_t plain;
    clockid_t alarm;
    int armFlags;  ///< of timerfd_settime
  };

  /// The callback gets errno's number when the alarm clock cannot be used.
  DueQueue(sd_event* event, Clocks clocks, std::function<void(int)> alarmUnavailable);
  DueQueue(const DueQueue&) = delete;
  DueQueue& operator=(const DueQueue&) = delete;
  ~DueQueue();

  std::int64_t now() const;
  void add(const std::shared_ptr<DueEntry>& entry);
  void remove(DueEntry& entry);
  /// Gives every pending entry the due time that the function computes.
  void reschedule(const std::function<std::int64_t(DueEntry&)>& dueOf);

 private:
  struct Descriptor {
    FileDescriptor file;
    sd_event_source* source = nullptr;
    std::int64_t armedFor = -1;
  };

  static int onReadable(sd_event_source* source, int file, std::uint32_t events, void* userdata);
  int open(Descriptor& descriptor, clockid_t clock);
  int arm(Descriptor& descriptor, clockid_t clock, std::int64_t due);
  void armAll();
  void runFirstDue();

  sd_event* event_;
  Clocks clocks_;
  std::function<void(int)> alarmUnavailable_;
  bool alarmFailed_ = false;
  Descriptor plain_;
  Descriptor alarm_;
  std::uint64_t nextSequence_ = 0;
  std::map<std::pair<std::int64_t, std::uint64_t>, std::shared_ptr<DueEntry>> pending_;
};

}  // namespace wrixel2::platform::linux
