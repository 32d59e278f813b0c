#include "platform/simulated/SimulatedRunLoop.h"

#include <algorithm>
#include <utility>

#include "platform/Assertion.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::platform::simulated {

namespace {

/// Far above what any one instant of this system needs.
constexpr std::size_t kTurnsPerInstant = 100'000;

}  // namespace

struct SimulatedRunLoop::Entry {
  Task callback;
  bool isValid = true;
  bool isQueued = false;  ///< its turn is waiting among the ready ones
  bool isPersistent = false;
  std::optional<TimeInterval> repeatInterval;

  std::string serviceIdentifier;
  TimeInterval interval{};
  MonotonicTime due;

  // A timer by date: the local time is what it keeps when the zone changes.
  std::optional<Date> fireDate;
  DateComponents localTime;
  TimeInterval partOfSecond{};
  unsigned zoneGeneration = 0;

  void invalidate() {
    isValid = false;
    // Destroyed last: it may own the handle that is invalidating.
    const Task released = std::move(callback);
  }
};

class SimulatedRunLoop::Handle final : public Timer {
 public:
  explicit Handle(std::shared_ptr<Entry> entry) : entry_(std::move(entry)) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle() override { entry_->invalidate(); }

  void invalidate() override {
    const std::shared_ptr<Entry> entry = entry_;
    entry->invalidate();
  }
  bool isValid() const override { return entry_->isValid; }

 private:
  std::shared_ptr<Entry> entry_;
};

SimulatedRunLoop::~SimulatedRunLoop() { discardWork(); }

void SimulatedRunLoop::discardWork() {
  // What the closures own may post again while it is destroyed.
  while (!ready_.empty() || !entries_.empty()) {
    const std::deque<Task> tasks = std::exchange(ready_, {});
    const std::vector<std::shared_ptr<Entry>> entries = std::exchange(entries_, {});
    for (const auto& entry : entries) {
      entry->invalidate();
    }
  }
}

void SimulatedRunLoop::post(Task task) { ready_.push_back(std::move(task)); }

void SimulatedRunLoop::postAfter(TimeInterval delay, Task task) {
  auto entry = std::make_shared<Entry>();
  entry->callback = std::move(task);
  entry->due = clock_.monotonicNow() + delay;
  entries_.push_back(std::move(entry));
}

std::unique_ptr<Timer> SimulatedRunLoop::add(std::shared_ptr<Entry> entry) {
  entries_.push_back(entry);
  return std::make_unique<Handle>(std::move(entry));
}

std::unique_ptr<Timer> SimulatedRunLoop::scheduledTimer(TimeInterval interval, bool repeats,
                                                        Task callback) {
  auto entry = std::make_shared<Entry>();
  entry->callback = std::move(callback);
  entry->interval = interval;
  entry->due = clock_.monotonicNow() + std::max(interval, TimeInterval::zero());
  if (repeats) {
    // The millisecond is the accuracy of the real loop; it also keeps time moving.
    entry->repeatInterval = std::max(interval, TimeInterval(std::chrono::milliseconds(1)));
  }
  return add(std::move(entry));
}

std::shared_ptr<SimulatedRunLoop::Entry> SimulatedRunLoop::persistentEntry(
    std::string_view serviceIdentifier, Task callback) {
  auto entry = std::make_shared<Entry>();
  entry->callback = std::move(callback);
  entry->isPersistent = true;
  entry->serviceIdentifier = serviceIdentifier;
  return entry;
}

std::unique_ptr<Timer> SimulatedRunLoop::persistentTimer(TimeInterval interval,
                                                         std::string_view serviceIdentifier,
                                                         Task callback) {
  auto entry = persistentEntry(serviceIdentifier, std::move(callback));
  entry->interval = interval;
  entry->due = clock_.monotonicNow() + std::max(interval, TimeInterval::zero());
  return add(std::move(entry));
}

std::unique_ptr<Timer> SimulatedRunLoop::persistentTimer(Date fireDate,
                                                         std::string_view serviceIdentifier,
                                                         Task callback) {
  auto entry = persistentEntry(serviceIdentifier, std::move(callback));
  entry->fireDate = fireDate;
  entry->localTime = componentsFromDate(fireDate, zone_);
  entry->partOfSecond = fireDate - std::chrono::floor<std::chrono::seconds>(fireDate);
  entry->zoneGeneration = zone_.generation();
  return add(std::move(entry));
}

MonotonicTime SimulatedRunLoop::dueTime(Entry& entry) const {
  if (entry.fireDate) {
    if (entry.zoneGeneration != zone_.generation()) {
      entry.fireDate = dateFromComponents(entry.localTime, zone_) + entry.partOfSecond;
      entry.zoneGeneration = zone_.generation();
    }
    return clock_.monotonicNow() + (*entry.fireDate - clock_.now());
  }
  return entry.due;
}

std::shared_ptr<SimulatedRunLoop::Entry> SimulatedRunLoop::nextEntry(bool persistentOnly) const {
  std::shared_ptr<Entry> next;
  MonotonicTime nextDue;
  for (const auto& entry : entries_) {
    if (!entry->isValid || entry->isQueued || (persistentOnly && !entry->isPersistent)) {
      continue;
    }
    const MonotonicTime due = dueTime(*entry);
    if (next == nullptr || due < nextDue) {
      next = entry;
      nextDue = due;
    }
  }
  return next;
}

void SimulatedRunLoop::collectDue() {
  std::erase_if(entries_, [](const auto& entry) { return !entry->isValid; });
  while (true) {
    const auto entry = nextEntry(false);
    if (entry == nullptr || dueTime(*entry) > clock_.monotonicNow()) {
      return;
    }
    entry->isQueued = true;
    ready_.emplace_back([this, weak = std::weak_ptr<Entry>(entry)] {
      if (const auto due = weak.lock()) {
        fire(due);
      }
    });
  }
}

void SimulatedRunLoop::fire(const std::shared_ptr<Entry>& entry) {
  if (!entry->isValid) {
    return;
  }
  entry->isQueued = false;
  Task callback = std::move(entry->callback);
  if (!entry->repeatInterval) {
    entry->isValid = false;
    callback();
    return;
  }
  // The beat stays; beats that passed while the loop could not run are left out.
  do {
    entry->due += *entry->repeatInterval;
  } while (entry->due <= clock_.monotonicNow());
  callback();
  if (entry->isValid) {
    entry->callback = std::move(callback);
  }
}

bool SimulatedRunLoop::takeTurn() {
  collectDue();
  if (ready_.empty()) {
    return false;
  }
  if (++turnsThisInstant_ > kTurnsPerInstant) {
    assertionFailure("The simulated run loop does not come to rest: work posts itself for ever");
  }
  const Task task = std::move(ready_.front());
  ready_.pop_front();
  task();
  return true;
}

bool SimulatedRunLoop::leapToNextTimer(MonotonicTime end, bool persistentOnly) {
  const auto entry = nextEntry(persistentOnly);
  if (entry == nullptr || dueTime(*entry) > end) {
    return false;
  }
  const TimeInterval distance = dueTime(*entry) - clock_.monotonicNow();
  if (distance > TimeInterval::zero()) {
    clock_.advance(distance);
  }
  turnsThisInstant_ = 0;
  ++wakeups_;
  return true;
}

void SimulatedRunLoop::beginRunning() {
  if (isRunning_) {
    assertionFailure("The simulated run loop was run from inside one of its own turns");
  }
  isRunning_ = true;
  turnsThisInstant_ = 0;
}

std::unique_ptr<Observation> SimulatedRunLoop::observeLocalTime(Task callback) {
  return localTimeObservers_.add({},
                                 [callback = std::move(callback)](std::monostate) { callback(); });
}

void SimulatedRunLoop::localTimeChanged() { localTimeObservers_.deliver(*this, {}, {}); }

int SimulatedRunLoop::run() {
  beginRunning();
  while (!stopStatus_ && (takeTurn() || leapToNextTimer(MonotonicTime::max(), false))) {
  }
  isRunning_ = false;
  return std::exchange(stopStatus_, std::nullopt).value_or(0);
}

void SimulatedRunLoop::stop(int status) { stopStatus_ = status; }

void SimulatedRunLoop::runUntilIdle() { runFor(TimeInterval::zero()); }

void SimulatedRunLoop::runFor(TimeInterval interval) {
  runUntil([] { return false; }, interval);
}

void SimulatedRunLoop::advanceTo(MonotonicTime moment) {
  runFor(std::max(moment - clock_.monotonicNow(), TimeInterval::zero()));
}

void SimulatedRunLoop::advanceTo(Date date) {
  runFor(std::max(date - clock_.now(), TimeInterval::zero()));
}

bool SimulatedRunLoop::runUntil(const std::function<bool()>& condition, TimeInterval limit) {
  beginRunning();
  const MonotonicTime end = clock_.monotonicNow() + limit;
  bool holds = condition();
  while (!holds && (takeTurn() || leapToNextTimer(end, false))) {
    holds = condition();
  }
  if (!holds && clock_.monotonicNow() < end) {
    clock_.advance(end - clock_.monotonicNow());
  }
  isRunning_ = false;
  return holds;
}

void SimulatedRunLoop::sleepFor(TimeInterval interval) {
  runUntilIdle();
  beginRunning();
  const MonotonicTime end = clock_.monotonicNow() + interval;
  while (leapToNextTimer(end, true)) {
    while (takeTurn()) {
    }
  }
  if (clock_.monotonicNow() < end) {
    clock_.advance(end - clock_.monotonicNow());
  }
  isRunning_ = false;
  runUntilIdle();
}

std::vector<PendingPersistentTimer> SimulatedRunLoop::persistentTimers() const {
  std::vector<PendingPersistentTimer> timers;
  for (const auto& entry : entries_) {
    if (entry->isValid && entry->isPersistent) {
      const TimeInterval remaining = dueTime(*entry) - clock_.monotonicNow();
      timers.push_back({entry->serviceIdentifier, entry->fireDate, entry->interval,
                        std::max(remaining, TimeInterval::zero())});
    }
  }
  return timers;
}

std::vector<PendingPersistentTimer> SimulatedRunLoop::persistentTimers(
    std::string_view serviceIdentifier) const {
  auto timers = persistentTimers();
  std::erase_if(timers, [serviceIdentifier](const auto& timer) {
    return timer.serviceIdentifier != serviceIdentifier;
  });
  return timers;
}

std::size_t SimulatedRunLoop::pendingTimers() const {
  return static_cast<std::size_t>(
      std::ranges::count_if(entries_, [](const auto& entry) { return entry->isValid; }));
}

}  // namespace wrixel2::platform::simulated
