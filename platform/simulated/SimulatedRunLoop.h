#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/Clock.h"
#include "platform/ObserverList.h"
#include "platform/RunLoop.h"

namespace wrixel2::platform::simulated {

class SimulatedClock;
class SimulatedTimeZone;

/// A timer that would fire although the phone sleeps, as tests see it.
struct PendingPersistentTimer {
  std::string serviceIdentifier;
  /// Given by date only: the date at which it fires by the clock and zone of now.
  std::optional<Date> fireDate;
  /// As it was given; zero for one by date.
  TimeInterval interval{};
  /// Until it fires, by the clocks of now; never negative.
  TimeInterval remaining{};

  friend bool operator==(const PendingPersistentTimer&, const PendingPersistentTimer&) = default;
};

/// The run loop on virtual time. Time passes only inside runFor, advanceTo, runUntil, sleepFor and
/// run; work itself takes none.
///
/// Everything starts in order: what is posted, first in first out; timers by due time, those due
/// together in the order in which they were made. A timer that falls due takes its place behind
/// what is waiting already. Timers are exact.
class SimulatedRunLoop final : public RunLoop {
 public:
  /// Both are borrowed; timers by date follow them.
  SimulatedRunLoop(SimulatedClock& clock, const SimulatedTimeZone& zone)
      : clock_(clock), zone_(zone) {}
  ~SimulatedRunLoop() override;

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

  /// Runs, time leaping from timer to timer, until stop() or until nothing is left to do (then 0).
  int run() override;
  void stop(int status) override;

  /// Does all work that is due, and what it posts, without letting time pass.
  void runUntilIdle();
  /// Lets so much time pass and does all work that falls due, up to and including the end.
  void runFor(TimeInterval interval);
  /// To a moment of either clock; nothing but due work happens for one that is past.
  void advanceTo(MonotonicTime moment);
  void advanceTo(Date date);
  /// Runs until the condition holds (looked at after every turn), for at most so long. Returns
  /// whether it holds.
  bool runUntil(const std::function<bool()>& condition, TimeInterval limit);
  /// The phone sleeps for so long: only persistent timers wake it, each for the work of that
  /// instant. What else fell due is done at the first wake-up, at the latest at the end.
  void sleepFor(TimeInterval interval);

  /// Tells those who observe the local time that the clock was set or the zone changed; the test
  /// does that itself before.
  void localTimeChanged();

  /// Destroys everything that is pending, without running it; what that posts as well.
  void discardWork();

  /// The valid persistent timers in the order in which they were made.
  std::vector<PendingPersistentTimer> persistentTimers() const;
  /// Those with the service identifier.
  std::vector<PendingPersistentTimer> persistentTimers(std::string_view serviceIdentifier) const;
  /// Timers that would still fire, delayed posts included. 0: nothing will ever wake the loop.
  std::size_t pendingTimers() const;
  /// Posted work that waits for its turn.
  bool hasReadyWork() const { return !ready_.empty(); }
  /// Instants at which a timer ended the loop's waiting: each would be one wake-up of the
  /// processor.
  std::size_t wakeups() const { return wakeups_; }

 private:
  struct Entry;
  class Handle;

  std::unique_ptr<Timer> add(std::shared_ptr<Entry> entry);
  static std::shared_ptr<Entry> persistentEntry(std::string_view serviceIdentifier, Task callback);
  MonotonicTime dueTime(Entry& entry) const;
  std::shared_ptr<Entry> nextEntry(bool persistentOnly) const;
  void collectDue();
  bool takeTurn();
  void fire(const std::shared_ptr<Entry>& entry);
  bool leapToNextTimer(MonotonicTime end, bool persistentOnly);
  void beginRunning();

  SimulatedClock& clock_;
  const SimulatedTimeZone& zone_;
  std::deque<Task> ready_;
  std::vector<std::shared_ptr<Entry>> entries_;  ///< in the order in which they were made
  ObserverList<std::monostate> localTimeObservers_;
  std::size_t wakeups_ = 0;
  std::size_t turnsThisInstant_ = 0;
  bool isRunning_ = false;
  std::optional<int> stopStatus_;
};

}  // namespace wrixel2::platform::simulated
