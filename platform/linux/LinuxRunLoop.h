#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <variant>
#include <vector>

#include <systemd/sd-event.h>

#include "platform/Log.h"
#include "platform/ObserverList.h"
#include "platform/RunLoop.h"
#include "platform/linux/ClockSetWatch.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {

class DueQueue;
class LocalTimeZone;

/// The run loop on sd-event. It sleeps in the kernel until something is due: an idle loop has no
/// wake-ups of its own.
///
/// Timers of one clock fire in the order of their due times, ties first in, first out. Timers may
/// outlive the loop; they do not fire any more then.
class LinuxRunLoop final : public RunLoop {
 public:
  /// The zone decides what a fire date is when the zone changes, and is reloaded when the file that
  /// it comes from does. The log gets a line when the phone cannot be woken for a timer.
  LinuxRunLoop(Log& log, LocalTimeZone& zone);
  ~LinuxRunLoop() override;

  /// For sources that the loop is to serve as well.
  sd_event* event() const { return event_; }

  /// SIGTERM and SIGINT become calls of the callback in a turn of the loop, instead of ending the
  /// process. Both signals are blocked from then on (in children too).
  void onTerminationSignal(Task callback);

  void post(Task task) override;
  void postAfter(TimeInterval delay, Task task) override;
  [[nodiscard]] std::unique_ptr<Timer> scheduledTimer(TimeInterval interval, bool repeats,
                                                      Task callback) override;
  [[nodiscard]] std::unique_ptr<Timer> persistentTimer(TimeInterval interval,
                                                       std::string_view serviceIdentifier,
                                                       Task callback) override;
  [[nodiscard]] std::unique_ptr<Timer> persistentTimer(Date fireDate,
                                                       std::string_view serviceIdentifier,
                                                       Task callback) override;
  [[nodiscard]] std::unique_ptr<Observation> observeLocalTime(Task callback) override;
  int run() override;
  void stop(int status) override;

  /// Serves events until the condition holds; false when the time is over before.
  bool runUntil(const std::function<bool()>& condition, TimeInterval limit);

 private:
  static int onPosted(sd_event_source* source, int file, std::uint32_t events, void* userdata);
  static int onSignal(sd_event_source* source, const struct signalfd_siginfo* info, void* userdata);
  static int onZoneFile(sd_event_source* source, const struct inotify_event* event, void* userdata);

  std::unique_ptr<Timer> intervalTimer(TimeInterval interval, bool repeats, bool wakes,
                                       Task callback);
  void askForTurn();
  void watchZoneFile();
  void zoneChanged();
  void tellLocalTime();
  bool turn(std::uint64_t microseconds);

  Logger logger_;
  LocalTimeZone& zone_;
  sd_event* event_ = nullptr;
  /// An eventfd and not a deferred source: sd-event serves a deferred source that is enabled again
  /// and again before all others, which then never get a turn.
  FileDescriptor postEvent_;
  sd_event_source* postSource_ = nullptr;
  bool isTurnAskedFor_ = false;
  std::vector<sd_event_source*> signalSources_;
  sd_event_source* zoneDirectorySource_ = nullptr;
  sd_event_source* zoneFileSource_ = nullptr;
  std::deque<Task> posted_;
  Task terminationCallback_;
  bool alarmFailureLogged_ = false;
  /// By CLOCK_BOOTTIME and by CLOCK_REALTIME.
  std::shared_ptr<DueQueue> intervals_;
  std::shared_ptr<DueQueue> dates_;
  std::uint64_t nextDelayed_ = 0;
  std::map<std::uint64_t, std::unique_ptr<Timer>> delayed_;
  ClockSetWatch clockSetWatch_;
  bool isClockWatched_ = false;
  ObserverList<std::monostate> localTimeObservers_;
  bool stopping_ = false;
  int status_ = 0;
};

}  // namespace wrixel2::platform::linux
