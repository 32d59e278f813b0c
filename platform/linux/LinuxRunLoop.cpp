#include "platform/linux/LinuxRunLoop.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <errno.h>
#include <fmt/format.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/timerfd.h>

#include "platform/Error.h"
#include "platform/linux/DueQueue.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/Process.h"

namespace wrixel2::platform::linux {
namespace {

// Keeps sums with the present within the clocks' range; nobody waits longer.
constexpr TimeInterval kLongestInterval = std::chrono::hours(24 * 365 * 100);

class LinuxTimer final : public Timer {
 public:
  LinuxTimer(const std::shared_ptr<DueQueue>& queue, std::shared_ptr<DueEntry> entry)
      : queue_(queue), entry_(std::move(entry)) {
    queue->add(entry_);
  }
  ~LinuxTimer() override { invalidate(); }

  void invalidate() override {
    if (const auto queue = queue_.lock()) {
      queue->remove(*entry_);
    }
  }
  bool isValid() const override { return entry_->isPending; }

 private:
  std::weak_ptr<DueQueue> queue_;
  std::shared_ptr<DueEntry> entry_;
};

void require(int result, const char* what) {
  if (result < 0) {
    endProcess(errorFromErrno(-result, what).localizedDescription);
  }
}

}  // namespace

LinuxRunLoop::LinuxRunLoop(Log& log, LocalTimeZone& zone)
    : logger_(log, "LinuxRunLoop"), zone_(zone) {
  require(sd_event_new(&event_), "No event loop can be made");
  postEvent_ = FileDescriptor(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
  require(postEvent_ ? sd_event_add_io(event_, &postSource_, postEvent_.get(), EPOLLIN,
                                       &LinuxRunLoop::onPosted, this)
                     : -errno,
          "No work can be queued");
  const auto alarmUnavailable = [this](int error) {
    if (!std::exchange(alarmFailureLogged_, true)) {
      logger_.warning(errorFromErrno(error, "A sleeping phone cannot be woken for timers")
                          .localizedDescription);
    }
  };
  intervals_ = std::make_shared<DueQueue>(
      event_, DueQueue::Clocks{CLOCK_BOOTTIME, CLOCK_BOOTTIME_ALARM, TFD_TIMER_ABSTIME},
      alarmUnavailable);
  dates_ = std::make_shared<DueQueue>(event_,
                                      DueQueue::Clocks{CLOCK_REALTIME, CLOCK_REALTIME_ALARM,
                                                       TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET},
                                      alarmUnavailable);
  watchZoneFile();
}

LinuxRunLoop::~LinuxRunLoop() {
  // What queued work owns may cancel timers or queue more work: the members that this needs are
  // alive, and not those that are being emptied.
  std::exchange(posted_, {}).clear();
  std::exchange(delayed_, {}).clear();
  sd_event_source_disable_unref(postSource_);
  sd_event_source_disable_unref(zoneDirectorySource_);
  sd_event_source_disable_unref(zoneFileSource_);
  for (auto* source : signalSources_) {
    sd_event_source_disable_unref(source);
  }
  intervals_.reset();
  dates_.reset();
  sd_event_unref(event_);
}

void LinuxRunLoop::post(Task task) {
  posted_.push_back(std::move(task));
  askForTurn();
}

void LinuxRunLoop::askForTurn() {
  if (!std::exchange(isTurnAskedFor_, true)) {
    ::eventfd_write(postEvent_.get(), 1);
  }
}

int LinuxRunLoop::onPosted(sd_event_source* /*source*/, int file, std::uint32_t /*events*/,
                           void* userdata) {
  auto* loop = static_cast<LinuxRunLoop*>(userdata);
  eventfd_t count = 0;
  ::eventfd_read(file, &count);
  // What this work queues in its turn runs now, too: a chain of steps costs one waking of the loop.
  // A long chain goes on in a later turn, so that timers and the bus get theirs.
  constexpr std::size_t kLongestChain = 16;
  for (auto left = std::max(loop->posted_.size(), kLongestChain);
       left > 0 && !loop->posted_.empty() && !loop->stopping_; --left) {
    const Task task = std::move(loop->posted_.front());
    loop->posted_.pop_front();
    task();
  }
  loop->isTurnAskedFor_ = false;
  if (!loop->posted_.empty()) {
    loop->askForTurn();
  }
  return 0;
}

void LinuxRunLoop::postAfter(TimeInterval delay, Task task) {
  const auto number = nextDelayed_++;
  delayed_[number] = scheduledTimer(delay, false, [this, number, task = std::move(task)] {
    const auto finished = delayed_.extract(number);
    task();
  });
}

std::unique_ptr<Timer> LinuxRunLoop::scheduledTimer(TimeInterval interval, bool repeats,
                                                    Task callback) {
  return intervalTimer(interval, repeats, false, std::move(callback));
}

std::unique_ptr<Timer> LinuxRunLoop::persistentTimer(TimeInterval interval,
                                                     std::string_view /*serviceIdentifier*/,
                                                     Task callback) {
  return intervalTimer(interval, false, interval > DueQueue::kAlarmThreshold, std::move(callback));
}

std::unique_ptr<Timer> LinuxRunLoop::intervalTimer(TimeInterval interval, bool repeats, bool wakes,
                                                   Task callback) {
  auto entry = std::make_shared<DueEntry>();
  const auto held = std::clamp(interval, TimeInterval::zero(), kLongestInterval);
  entry->due = intervals_->now() + held.count();
  // A repeating timer of no length would leave nothing else a turn.
  entry->interval =
      repeats ? std::max<TimeInterval>(held, std::chrono::milliseconds(1)) : TimeInterval::zero();
  entry->wakes = wakes;
  entry->callback = std::move(callback);
  return std::make_unique<LinuxTimer>(intervals_, std::move(entry));
}

std::unique_ptr<Timer> LinuxRunLoop::persistentTimer(Date fireDate,
                                                     std::string_view /*serviceIdentifier*/,
                                                     Task callback) {
  auto entry = std::make_shared<DueEntry>();
  const std::int64_t now = dates_->now();
  entry->due = std::clamp<std::int64_t>(fireDate.time_since_epoch().count(), 0,
                                        now + kLongestInterval.count());
  const Date due{TimeInterval(entry->due)};
  entry->local = componentsFromDate(due, zone_);
  entry->offset = zone_.secondsFromGMT(due);
  entry->wakes = TimeInterval(entry->due - now) > DueQueue::kAlarmThreshold;
  entry->callback = std::move(callback);
  return std::make_unique<LinuxTimer>(dates_, std::move(entry));
}

std::unique_ptr<Observation> LinuxRunLoop::observeLocalTime(Task callback) {
  if (!std::exchange(isClockWatched_, true)) {
    if (const auto error = clockSetWatch_.start(event_, [this] { tellLocalTime(); })) {
      logger_.warning(error->localizedDescription);
    }
  }
  return localTimeObservers_.add({},
                                 [callback = std::move(callback)](std::monostate) { callback(); });
}

void LinuxRunLoop::tellLocalTime() { localTimeObservers_.deliver(*this, {}, {}); }

int LinuxRunLoop::run() {
  while (!stopping_) {
    if (!turn(UINT64_MAX)) {
      return 1;
    }
  }
  stopping_ = false;
  return status_;
}

void LinuxRunLoop::stop(int status) {
  stopping_ = true;
  status_ = status;
}

bool LinuxRunLoop::runUntil(const std::function<bool()>& condition, TimeInterval limit) {
  const std::int64_t end = intervals_->now() + limit.count();
  while (!condition()) {
    const std::int64_t left = end - intervals_->now();
    if (left <= 0 || !turn(static_cast<std::uint64_t>(left))) {
      return false;
    }
  }
  return true;
}

bool LinuxRunLoop::turn(std::uint64_t microseconds) {
  const int result = sd_event_run(event_, microseconds);
  if (result < 0 && result != -EINTR) {
    logger_.error(errorFromErrno(-result, "The event loop ends").localizedDescription);
    return false;
  }
  return true;
}

void LinuxRunLoop::onTerminationSignal(Task callback) {
  terminationCallback_ = std::move(callback);
  if (!signalSources_.empty()) {
    return;
  }
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT}) {
    sigaddset(&signals, number);
  }
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
  for (const int number : {SIGTERM, SIGINT}) {
    sd_event_source* source = nullptr;
    require(sd_event_add_signal(event_, &source, number, &LinuxRunLoop::onSignal, this),
            "Signals cannot be received");
    // Before all the rest that is due, however much that is.
    sd_event_source_set_priority(source, SD_EVENT_PRIORITY_IMPORTANT);
    signalSources_.push_back(source);
  }
}

int LinuxRunLoop::onSignal(sd_event_source* /*source*/, const struct signalfd_siginfo* /*info*/,
                           void* userdata) {
  auto* loop = static_cast<LinuxRunLoop*>(userdata);
  if (loop->terminationCallback_) {
    loop->terminationCallback_();
  }
  return 0;
}

void LinuxRunLoop::watchZoneFile() {
  if (!zone_.followsLocaltimeFile()) {
    return;
  }
  const std::filesystem::path path(zone_.localtimePath());
  // The zone is set by putting another file or link in the entry's place; an update of the zone's
  // own rules replaces the file that the link leads to, which only a watch on that file shows.
  constexpr std::uint32_t kEntryEvents = IN_CREATE | IN_MOVED_TO | IN_CLOSE_WRITE | IN_DELETE;
  constexpr std::uint32_t kFileEvents = IN_ATTRIB | IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF;
  if (zoneDirectorySource_ == nullptr) {
    const int result =
        sd_event_add_inotify(event_, &zoneDirectorySource_, path.parent_path().c_str(),
                             kEntryEvents, &LinuxRunLoop::onZoneFile, this);
    if (result < 0) {
      logger_.warning(errorFromErrno(-result, fmt::format("Changes of {} are not noticed",
                                                          zone_.localtimePath()))
                          .localizedDescription);
    }
  }
  // There need not be a file: the zone is UTC then.
  zoneFileSource_ = sd_event_source_disable_unref(zoneFileSource_);
  sd_event_add_inotify(event_, &zoneFileSource_, path.c_str(), kFileEvents,
                       &LinuxRunLoop::onZoneFile, this);
}

int LinuxRunLoop::onZoneFile(sd_event_source* source, const struct inotify_event* event,
                             void* userdata) {
  auto* loop = static_cast<LinuxRunLoop*>(userdata);
  const bool isEntry = source == loop->zoneDirectorySource_;
  const std::filesystem::path path(loop->zone_.localtimePath());
  // The removal of our own watch is reported to it, too.
  const bool concernsZone =
      isEntry ? event->len > 0 && path.filename() == event->name : (event->mask & IN_IGNORED) == 0;
  if (concernsZone) {
    loop->watchZoneFile();
    loop->zoneChanged();
  }
  return 0;
}

void LinuxRunLoop::zoneChanged() {
  zone_.reload();
  dates_->reschedule([this](DueEntry& entry) {
    const Date due{TimeInterval(entry.due)};
    const int offset = zone_.secondsFromGMT(due);
    if (offset == entry.offset) {
      return entry.due;  // as it was, also where a local time occurs twice
    }
    const auto fraction = due - std::chrono::floor<std::chrono::seconds>(due);
    const Date moved = dateFromComponents(entry.local, zone_) + fraction;
    entry.offset = zone_.secondsFromGMT(moved);
    return std::max<std::int64_t>(moved.time_since_epoch().count(), 0);
  });
  tellLocalTime();
}

}  // namespace wrixel2::platform::linux
