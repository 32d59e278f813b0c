#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedRunLoop.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::platform::simulated {
namespace {

using namespace std::chrono_literals;

Date utc(int year, unsigned month, unsigned day, int hour, int minute = 0, int second = 0) {
  return std::chrono::sys_days(std::chrono::year(year) / static_cast<int>(month) /
                               static_cast<int>(day)) +
         std::chrono::hours(hour) + std::chrono::minutes(minute) + std::chrono::seconds(second);
}

class SimulatedRunLoopTest : public ::testing::Test {
 protected:
  Task note(std::string text) {
    return [this, text = std::move(text)] { log_.push_back(text); };
  }

  SimulatedClock clock_;
  SimulatedTimeZone zone_;
  std::vector<std::string> log_;
  SimulatedRunLoop loop_{clock_, zone_};
};

using Log = std::vector<std::string>;

TEST_F(SimulatedRunLoopTest, WorkOfAllQueuesRunsInTheOrderInWhichItWasQueuedAndNeverInsideAsync) {
  const Queue serial = loop_.makeSerialQueue("serial");
  loop_.mainQueue().async([&] {
    serial.async(note("posted by the first"));
    log_.emplace_back("first");
  });
  serial.async(note("second"));
  loop_.globalQueue().after(0ms, note("third"));
  EXPECT_TRUE(log_.empty());

  loop_.runUntilIdle();
  EXPECT_EQ(log_, (Log{"first", "second", "third", "posted by the first"}));
}

TEST_F(SimulatedRunLoopTest, TimersFireInDueOrderTiesInTheOrderOfMakingAheadOfWhatTheyPost) {
  const auto late = loop_.scheduledTimer(20ms, false, note("late"));
  const auto tie1 = loop_.scheduledTimer(10ms, false, [&] {
    log_.emplace_back("tie 1");
    loop_.post(note("posted by tie 1"));
  });
  loop_.postAfter(10ms, note("tie 2"));
  const auto tie3 = loop_.persistentTimer(10ms, "test", note("tie 3"));

  loop_.runFor(9ms);
  EXPECT_TRUE(log_.empty());
  loop_.runFor(1ms);
  EXPECT_EQ(log_, (Log{"tie 1", "tie 2", "tie 3", "posted by tie 1"}));
  EXPECT_TRUE(late->isValid());
  EXPECT_FALSE(tie1->isValid());
  loop_.runFor(10ms);
  EXPECT_EQ(log_.back(), "late");
  EXPECT_EQ(loop_.wakeups(), 2U);
  EXPECT_EQ(loop_.pendingTimers(), 0U);
}

TEST_F(SimulatedRunLoopTest, ARepeatingTimerKeepsItsBeatAndLeavesOutWhatABlockedLoopMissed) {
  std::vector<TimeInterval> beats;
  const MonotonicTime start = clock_.monotonicNow();
  const auto timer =
      loop_.scheduledTimer(2s, true, [&] { beats.push_back(clock_.monotonicNow() - start); });
  loop_.runFor(5s);
  clock_.advance(5s);  // a call that blocks: 6 s, 8 s and 10 s pass
  loop_.runFor(2s);
  EXPECT_EQ(beats, (std::vector<TimeInterval>{2s, 4s, 10s, 12s}));
  timer->invalidate();
  loop_.runFor(10s);
  EXPECT_EQ(beats.size(), 4U);
}

TEST_F(SimulatedRunLoopTest, ATimerCancelledAfterItFellDueIsNotCalled) {
  std::unique_ptr<Timer> second;
  const auto first = loop_.scheduledTimer(10ms, false, [&] { second.reset(); });
  second = loop_.scheduledTimer(10ms, false, note("must not run"));
  loop_.runFor(1s);
  EXPECT_TRUE(log_.empty());
}

TEST_F(SimulatedRunLoopTest, ACallbackMayDestroyTheTimerThatCalledItAndStillUseWhatItOwns) {
  for (const bool repeats : {false, true}) {
    auto owned = std::make_shared<int>(7);
    const std::weak_ptr<int> watch = owned;
    std::unique_ptr<Timer> timer;
    timer = loop_.scheduledTimer(1ms, repeats, [&timer, owned = std::move(owned)] {
      timer.reset();
      EXPECT_EQ(*owned, 7);
    });
    loop_.runFor(10ms);
    EXPECT_EQ(timer, nullptr);
    EXPECT_TRUE(watch.expired());
  }
}

TEST_F(SimulatedRunLoopTest, InvalidatingReleasesWhatTheCallbackOwnsEvenItsOwnTimer) {
  const auto holder = std::make_shared<std::unique_ptr<Timer>>();
  const std::weak_ptr<std::unique_ptr<Timer>> watch = holder;
  {
    auto owner = holder;
    *holder = loop_.scheduledTimer(1s, true, [owner = std::move(owner)] {});
  }
  (*holder)->invalidate();
  EXPECT_EQ(holder.use_count(), 1);
  EXPECT_FALSE((*holder)->isValid());
}

TEST_F(SimulatedRunLoopTest, TimersByDateFollowTheWallClock) {
  const struct {
    const char* name;
    TimeInterval fromNow;      ///< the timer's date
    TimeInterval clockChange;  ///< made a minute later
    TimeInterval firesAfter;   ///< that change
  } cases[] = {
      {"clock left alone", 10min, 0min, 9min},
      {"clock set forward", 10min, 5min, 4min},
      {"clock set past the date", 10min, 20min, 0min},
      {"clock set back", 10min, -30min, 39min},
      {"date past from the beginning", -5min, 0min, 0min},
  };
  const auto byInterval = loop_.persistentTimer(24h, "other", note("by interval"));
  const MonotonicTime start = clock_.monotonicNow();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    log_.clear();
    const auto timer = loop_.persistentTimer(clock_.now() + test.fromNow, "test", note("fired"));
    if (test.fromNow > 0min) {
      loop_.runFor(1min);
    }
    clock_.setWallClock(clock_.now() + test.clockChange);
    EXPECT_EQ(loop_.persistentTimers("test").at(0).remaining, test.firesAfter);
    if (test.firesAfter > 0min) {
      loop_.runFor(test.firesAfter - 1us);
      EXPECT_TRUE(log_.empty());
      loop_.runFor(1us);
    } else {
      loop_.runUntilIdle();
    }
    EXPECT_EQ(log_, Log{"fired"});
  }
  loop_.advanceTo(start + 24h - 1us);
  EXPECT_EQ(log_, Log{"fired"}) << "an interval does not follow the wall clock";
  loop_.advanceTo(start + 24h);
  EXPECT_EQ(log_.back(), "by interval");
}

TEST_F(SimulatedRunLoopTest, TimersByDateKeepTheirLocalDateAndHourWhenTheZoneChanges) {
  zone_.setSecondsFromGMT(3600);
  const Date date = utc(2026, 3, 3, 8, 30) + 250ms;  // 09:30 local
  const auto timer = loop_.persistentTimer(date, "test", note("fired"));

  zone_.setSecondsFromGMT(-5 * 3600);
  EXPECT_EQ(loop_.persistentTimers().at(0).fireDate, utc(2026, 3, 3, 14, 30) + 250ms);
  zone_.setSecondsFromGMT(3600);
  EXPECT_EQ(loop_.persistentTimers().at(0).fireDate, date);
}

TEST_F(SimulatedRunLoopTest, TheEuropeanZoneChangesAtOneOClockUniversalTime) {
  zone_.setCentralEurope();
  const struct {
    Date date;
    int hours;
  } cases[] = {
      {utc(2026, 3, 29, 0, 59, 59), 1},  {utc(2026, 3, 29, 1), 2},  {utc(2026, 7, 1, 12), 2},
      {utc(2026, 10, 25, 0, 59, 59), 2}, {utc(2026, 10, 25, 1), 1}, {utc(2027, 3, 28, 1), 2},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(zone_.secondsFromGMT(test.date), test.hours * 3600) << description(test.date);
  }
}

TEST_F(SimulatedRunLoopTest, OnlyPersistentTimersWakeASleepingPhone) {
  const MonotonicTime start = clock_.monotonicNow();
  std::vector<std::pair<std::string, TimeInterval>> fired;
  const auto noteTime = [&](std::string text) -> Task {
    return [&, text = std::move(text)] { fired.emplace_back(text, clock_.monotonicNow() - start); };
  };
  const auto plain = loop_.scheduledTimer(1min, false, noteTime("plain"));
  const auto persistent = loop_.persistentTimer(10min, "test", noteTime("persistent"));
  const auto last = loop_.scheduledTimer(15min, false, noteTime("last"));

  loop_.sleepFor(30min);
  EXPECT_EQ(fired, (std::vector<std::pair<std::string, TimeInterval>>{
                       {"plain", 10min}, {"persistent", 10min}, {"last", 30min}}));
  EXPECT_EQ(loop_.wakeups(), 1U);
}

TEST_F(SimulatedRunLoopTest, RunningEndsWithStopWithNothingLeftOrWithACondition) {
  const MonotonicTime start = clock_.monotonicNow();
  loop_.postAfter(3s, note("one"));
  loop_.postAfter(3s, note("two"));
  EXPECT_TRUE(loop_.runUntil([this] { return !log_.empty(); }, 10s));
  EXPECT_EQ(log_, Log{"one"});
  EXPECT_EQ(clock_.monotonicNow() - start, 3s);
  EXPECT_FALSE(loop_.runUntil([] { return false; }, 10s));
  EXPECT_EQ(clock_.monotonicNow() - start, 13s);

  loop_.postAfter(1h, note("an hour later"));
  EXPECT_EQ(loop_.run(), 0);
  EXPECT_EQ(log_.back(), "an hour later");
  const auto endless = loop_.scheduledTimer(1s, true, [] {});
  loop_.postAfter(10s, [this] { loop_.stop(3); });
  EXPECT_EQ(loop_.run(), 3);
}

TEST_F(SimulatedRunLoopTest, DiscardedWorkIsDestroyedWithoutRunningAndSoIsWhatThatPosts) {
  struct PostsAtTheEnd {
    SimulatedRunLoop& loop;
    std::vector<std::string>& log;
    ~PostsAtTheEnd() {
      loop.post([&list = log] { list.emplace_back("must not run"); });
      log.emplace_back("destroyed");
    }
  };
  loop_.post([owned = std::make_unique<PostsAtTheEnd>(loop_, log_)] {});
  const auto timer =
      loop_.scheduledTimer(1s, true, [owned = std::make_unique<PostsAtTheEnd>(loop_, log_)] {});
  loop_.discardWork();
  loop_.runFor(1min);
  EXPECT_EQ(log_, (Log{"destroyed", "destroyed"}));
  EXPECT_FALSE(timer->isValid());
}

void postForEver(SimulatedRunLoop& loop) {
  loop.post([&loop] { postForEver(loop); });
}

TEST_F(SimulatedRunLoopTest, WorkThatPostsItselfForEverIsFoundOut) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        postForEver(loop_);
        loop_.runUntilIdle();
      },
      "does not come to rest");
  EXPECT_DEATH(
      {
        loop_.post([this] { loop_.runUntilIdle(); });
        loop_.runUntilIdle();
      },
      "from inside one of its own turns");
}

}  // namespace
}  // namespace wrixel2::platform::simulated
