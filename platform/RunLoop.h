#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Clock.h"
#include "platform/Date.h"
#include "platform/Observation.h"
#include "platform/UniqueFunction.h"

namespace wrixel2::platform {

using Task = UniqueFunction<void()>;

/// A pending timer. Destroying it, or invalidate(), cancels it: its callback is not called any
/// more, not even when it was already due. A one-shot timer is no longer valid from the moment its
/// callback starts. The callback may destroy the timer that called it.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void invalidate() = 0;
  virtual bool isValid() const = 0;
};

class RunLoop;

/// An ordering, not a thread: work queued here starts in the order in which it was queued, each
/// piece in a turn of its own on the one run loop. Nothing queued runs before async() returns.
class Queue {
 public:
  Queue(RunLoop& loop, std::string_view label) : loop_(&loop), label_(label) {}

  void async(Task task) const;
  /// After the delay, with millisecond accuracy; a delay of zero is async(). Not cancellable: work
  /// that may outlive its subject captures it weakly.
  void after(TimeInterval delay, Task task) const;

  const std::string& label() const { return label_; }

 private:
  RunLoop* loop_;
  std::string label_;
};

/// The one loop of the process. Everything runs in its turns; nothing is called re-entrantly.
class RunLoop {
 public:
  RunLoop() : mainQueue_(*this, "main"), globalQueue_(*this, "global") {}
  RunLoop(const RunLoop&) = delete;
  RunLoop& operator=(const RunLoop&) = delete;
  virtual ~RunLoop() = default;

  const Queue& mainQueue() const { return mainQueue_; }
  /// The global queue of default priority, for work with pauses between its steps.
  const Queue& globalQueue() const { return globalQueue_; }
  Queue makeSerialQueue(std::string_view label) { return Queue(*this, label); }

  /// First in, first out over all queues.
  virtual void post(Task task) = 0;
  virtual void postAfter(TimeInterval delay, Task task) = 0;

  /// A timer with millisecond accuracy that does not wake a sleeping phone. Repeats at the
  /// interval when asked to.
  [[nodiscard]] virtual std::unique_ptr<Timer> scheduledTimer(TimeInterval interval, bool repeats,
                                                              Task callback) = 0;

  /// A one-shot timer that fires although the phone sleeps (where the process may wake it). The
  /// service identifier names its purpose; it is not unique.
  [[nodiscard]] virtual std::unique_ptr<Timer> persistentTimer(TimeInterval interval,
                                                               std::string_view serviceIdentifier,
                                                               Task callback) = 0;
  /// The same by wall clock: it follows the clock when it is set, and keeps its local date and hour
  /// when the time zone changes. A date that is past fires at once.
  [[nodiscard]] virtual std::unique_ptr<Timer> persistentTimer(Date fireDate,
                                                               std::string_view serviceIdentifier,
                                                               Task callback) = 0;

  /// Calls back after the wall clock was set (by a second or more), and after the local time zone
  /// was changed, in a turn of its own. A zone's own summer time is no change of it.
  [[nodiscard]] virtual std::unique_ptr<Observation> observeLocalTime(Task callback) = 0;

  /// Serves events until stop(). Returns the status given to stop().
  virtual int run() = 0;
  virtual void stop(int status) = 0;

 private:
  Queue mainQueue_;
  Queue globalQueue_;
};

}  // namespace wrixel2::platform
