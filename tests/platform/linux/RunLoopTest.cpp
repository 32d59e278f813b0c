#include <fstream>

#include <gtest/gtest.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/timerfd.h>

#include "platform/linux/DueQueue.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

using std::chrono::hours;
using std::chrono::milliseconds;

// A time zone file (RFC 8536, version 1) with a single offset.
std::string zoneFile(int secondsFromGMT) {
  std::string file("TZif", 4);
  file += std::string(16, '\0');
  for (const char count : {0, 0, 0, 0, 1, 4}) {  // one local time type, a name of 4 bytes
    file += std::string(3, '\0') + count;
  }
  for (int shift = 24; shift >= 0; shift -= 8) {
    file += static_cast<char>(secondsFromGMT >> shift);
  }
  return file + std::string(2, '\0') + std::string("LOC\0", 4);
}

class RunLoopTest : public testing::Test {
 public:
  RunLoopTest() { directory.write("localtime", zoneFile(0)); }
  ~RunLoopTest() override { ::unsetenv("TZ"); }

 protected:
  void serveUntil(const std::function<bool()>& condition) {
    EXPECT_TRUE(loop.runUntil(condition, std::chrono::seconds(10)));
  }
  // As the zone is set: another file takes the entry's place.
  void setZone(int secondsFromGMT) {
    std::filesystem::rename(directory.write("new", zoneFile(secondsFromGMT)),
                            directory.path("localtime"));
  }

  TemporaryDirectory directory;
  RecordingLog log;
  LocalTimeZone zone{directory.path("localtime")};
  LinuxRunLoop loop{log, zone};
  LinuxClock clock;
  std::string order;
};

TEST_F(RunLoopTest, WorkOfAllQueuesRunsInOrderAndLaterWorkInALaterTurn) {
  const auto serial = loop.makeSerialQueue("serial");
  bool hasTimerFired = false;
  const auto timer = loop.scheduledTimer(TimeInterval(0), false, [&] { hasTimerFired = true; });
  std::function<void()> again = [&] {
    if (!hasTimerFired) {
      loop.post(again);  // for ever, were there no turns for anything else
    } else {
      order += "4";
      loop.stop(7);
      loop.post([&] { order += "never"; });
    }
  };
  loop.mainQueue().async([&] {
    order += "1";
    loop.mainQueue().async(again);
  });
  serial.async([&] { order += "2"; });
  loop.globalQueue().async([&] { order += "3"; });
  EXPECT_EQ(loop.run(), 7);
  EXPECT_EQ(order, "1234");
}

TEST_F(RunLoopTest, TimersFireInTheOrderOfTheirTimesTiesFirstInFirstOut) {
  const auto now = clock.monotonicNow();
  loop.postAfter(milliseconds(50), [&] { order += "c"; });
  const auto second = loop.scheduledTimer(milliseconds(25), false, [&] { order += "b"; });
  const auto invalidated = loop.scheduledTimer(milliseconds(25), false, [&] { order += "x"; });
  const auto persistent = loop.persistentTimer(milliseconds(1), "service", [&] { order += "a"; });
  invalidated->invalidate();
  serveUntil([&] { return order.size() == 3; });
  EXPECT_EQ(order, "abc");
  EXPECT_GE(clock.monotonicNow() - now, milliseconds(50));
  EXPECT_FALSE(second->isValid());
  EXPECT_FALSE(invalidated->isValid());

  // Both are due by the time the loop gets to look.
  std::unique_ptr<Timer> due, dueToo;
  due = loop.scheduledTimer(TimeInterval(0), false, [&] {
    order += "d";
    EXPECT_FALSE(due->isValid());
    dueToo.reset();
    loop.post([&] { order += "e"; });
  });
  dueToo = loop.scheduledTimer(TimeInterval(0), false, [&] { order += "x"; });
  serveUntil([&] { return order.size() == 5; });
  EXPECT_EQ(order, "abcde");
}

TEST_F(RunLoopTest, ATimerMayBeDestroyedByItsCallbackAndMayOutliveTheLoop) {
  int count = 0;
  std::unique_ptr<Timer> repeating;
  std::unique_ptr<Timer> once;
  repeating = loop.scheduledTimer(milliseconds(1), true, [&, owned = std::string("owned")] {
    EXPECT_TRUE(repeating->isValid());
    if (++count == 3) {
      repeating.reset();
    }
    EXPECT_EQ(owned, "owned");
  });
  once = loop.scheduledTimer(milliseconds(1), false, [&, owned = std::string("owned")] {
    once.reset();
    EXPECT_EQ(owned, "owned");
  });
  serveUntil([&] { return !repeating && !once; });
  EXPECT_EQ(count, 3);
  {
    LinuxRunLoop brief(log, zone);
    once = brief.scheduledTimer(milliseconds(1), false, [] {});
    brief.post([held = brief.scheduledTimer(milliseconds(1), true, [] {})] {});
    brief.postAfter(milliseconds(1), [held = brief.persistentTimer(Date(), "s", [] {})] {});
  }
  EXPECT_FALSE(once->isValid());
  once->invalidate();
}

TEST_F(RunLoopTest, DatesThatArePastFireAtOnceAndOthersInTime) {
  const auto due = clock.now() + milliseconds(5);
  const auto past = loop.persistentTimer(Date(hours(-1)), "s", [&] { order += "p"; });
  const auto timer = loop.persistentTimer(due, "s", [&] {
    EXPECT_GE(clock.now(), due);
    order += "t";
  });
  const auto distant = loop.persistentTimer(Date::max(), "s", [&] { order += "x"; });
  const auto endless = loop.persistentTimer(TimeInterval::max(), "s", [&] { order += "x"; });
  serveUntil([&] { return order.size() == 2; });
  EXPECT_EQ(order, "pt");
  EXPECT_TRUE(distant->isValid());
}

TEST_F(RunLoopTest, AFireDateKeepsItsLocalHourInANewTimeZone) {
  const auto timer = loop.persistentTimer(clock.now() + hours(1), "s", [&] { order += "e"; });
  const auto later =
      loop.persistentTimer(clock.now() + milliseconds(30), "s", [&] { order += "x"; });
  EXPECT_EQ(zone.secondsFromGMT(clock.now()), 0);
  setZone(-7200);  // what is now was an hour ago there, two hours west
  bool isOver = false;
  serveUntil([&] { return zone.secondsFromGMT(clock.now()) == -7200; });
  const auto end = loop.scheduledTimer(milliseconds(40), false, [&] { isOver = true; });
  serveUntil([&] { return isOver; });
  EXPECT_EQ(order, "");
  setZone(7200);
  serveUntil([&] { return order.size() == 2; });
  EXPECT_EQ(order, "xe") << "both are past, two hours east";
}

TEST_F(RunLoopTest, AnIdleLoopDoesNotWakeUp) {
  const auto timer = loop.persistentTimer(hours(1), "s", [] {});
  int turns = 0;
  const auto countTurns = [&] {
    ++turns;
    return false;
  };
  EXPECT_FALSE(loop.runUntil(countTurns, milliseconds(30)));
  EXPECT_LE(turns, 8) << "a few as it starts and as the time runs out";
}

TEST_F(RunLoopTest, TerminationSignalsBecomeACallback) {
  loop.onTerminationSignal([&] { order += "s"; });
  ::raise(SIGTERM);
  serveUntil([&] { return order == "s"; });
  ::raise(SIGINT);
  serveUntil([&] { return order == "ss"; });
}

TEST_F(RunLoopTest, WithoutAnAlarmClockTimersFireAllTheSame) {
  std::vector<int> failures;
  const DueQueue::Clocks clocks{CLOCK_BOOTTIME, 12345, TFD_TIMER_ABSTIME};
  DueQueue queue(loop.event(), clocks, [&](int error) { failures.push_back(error); });
  for (int number = 0; number < 2; ++number) {
    const auto entry = std::make_shared<DueEntry>();
    entry->due = queue.now();
    entry->wakes = true;
    entry->callback = [&] { order += "f"; };
    queue.add(entry);
  }
  serveUntil([&] { return order == "ff"; });
  EXPECT_EQ(failures, std::vector<int>{EINVAL});
}

// Whether an alarm clock is armed in this process, as the kernel tells it.
bool isAlarmArmed(clockid_t clock) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fdinfo")) {
    std::ifstream file(entry.path());
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    if (text.find("clockid: " + std::to_string(clock) + "\n") != std::string::npos &&
        text.find("it_value: (0, 0)") == std::string::npos) {
      return true;
    }
  }
  return false;
}

TEST_F(RunLoopTest, OnlyWhatLiesFurtherAheadArmsAnAlarmClock) {
  const FileDescriptor probe(::timerfd_create(CLOCK_BOOTTIME_ALARM, TFD_CLOEXEC));
  if (!probe) {
    GTEST_SKIP() << "this process may not wake the machine";
  }
  auto near = loop.persistentTimer(milliseconds(2000), "s", [] {});
  const auto plain = loop.scheduledTimer(hours(1), false, [] {});
  EXPECT_FALSE(isAlarmArmed(CLOCK_BOOTTIME_ALARM));
  auto far = loop.persistentTimer(milliseconds(2001), "s", [] {});
  EXPECT_TRUE(isAlarmArmed(CLOCK_BOOTTIME_ALARM));
  EXPECT_FALSE(isAlarmArmed(CLOCK_REALTIME_ALARM));
  far = loop.persistentTimer(clock.now() + hours(1), "s", [] {});
  EXPECT_TRUE(isAlarmArmed(CLOCK_REALTIME_ALARM));
  EXPECT_TRUE(log.lines.empty());
}

}  // namespace
}  // namespace wrixel2::platform::linux
