#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "companion/LogindSleepInhibitor.h"
#include "companion/SleepHold.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/companion/ServiceTest.h"

namespace wrixel2::companion {
namespace {

using namespace std::chrono_literals;

struct FakeInhibitor final : SleepInhibitor {
  void take() override { isTaken = true; }
  void giveBack() override { isTaken = false; }
  bool isTaken = false;
};

TEST(SleepHoldTest, HoldsFromTheFirstCauseUntilTheBandIsServed) {
  platform::simulated::SimulatedPlatform phone;
  FakeInhibitor inhibitor;
  SleepHold hold(phone.runLoop, inhibitor);
  const auto work = [&] { hold.bandHasWork(); };
  const auto state = [&](const char* name) { return [&, name] { hold.daemonStateIs(name); }; };
  const auto pass = [&](platform::TimeInterval time) {
    return [&, time] { phone.runLoop.runFor(time); };
  };
  /// What happens, and whether the phone is held back after it.
  const std::pair<std::function<void()>, bool> steps[] = {
      {state("idle"), false},
      {work, true},
      {pass(4999ms), true},
      {work, true},
      {pass(4999ms), true},
      {pass(1ms), false},
      {work, true},
      {state("idle"), true},  // the same state, another property
      {state("connecting"), true},
      {pass(4s), true},
      {state("connected"), true},
      {pass(1s), false},
      {state("connecting"), true},
      {state("idle"), false},
      {pass(1min), false},
      {state("connecting"), true},
      {state("off"), false},
      {state("connecting"), true},
      {state(""), false},
  };
  for (std::size_t i = 0; i < std::size(steps); ++i) {
    steps[i].first();
    EXPECT_EQ(inhibitor.isTaken, steps[i].second) << "step " << i;
  }
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

/// A login manager whose locks are pipes, as the real one's are: it sees when the last copy of a
/// lock is closed.
class LogindSleepInhibitorTest : public ServiceTest {
 protected:
  ~LogindSleepInhibitorTest() override { ::close(readingEnd); }

  void appear() {
    add("/org/freedesktop/login1",
        {"org.freedesktop.login1.Manager",
         {{"Inhibit",
           {{"what", "s"}, {"who", "s"}, {"why", "s"}, {"mode", "s"}},
           {{"lock", "h"}},
           [this](const platform::linux::BusMessage& call) { inhibit(call); }}},
         {},
         {}});
    ServiceTest::appear("org.freedesktop.login1");
  }
  void inhibit(const platform::linux::BusMessage& call) {
    asked.push_back(*call.arguments());
    if (isRefusing) {
      call.replyError("org.freedesktop.DBus.Error.AccessDenied", "no");
      return;
    }
    int ends[2] = {-1, -1};
    ASSERT_EQ(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
    ::close(std::exchange(readingEnd, ends[0]));
    sd_bus_reply_method_return(call.get(), "h", ends[1]);
    ::close(ends[1]);
  }
  /// Whether the last lock that was given is still held.
  bool isHeld() {
    settle();
    char byte = 0;
    return readingEnd >= 0 && ::read(readingEnd, &byte, 1) < 0;
  }

  bool isRefusing = false;
  std::vector<platform::Array> asked;
  int readingEnd = -1;
  LogindSleepInhibitor inhibitor{log};
};

TEST_F(LogindSleepInhibitorTest, HoldsOneLockUntilItIsGivenBack) {
  appear();
  inhibitor.take();
  EXPECT_FALSE(isHeld()) << "no bus yet";
  inhibitor.busFound(*own);
  inhibitor.take();
  EXPECT_TRUE(isHeld());
  inhibitor.take();
  inhibitor.busLost();
  EXPECT_TRUE(isHeld());
  EXPECT_EQ(asked,
            (std::vector<platform::Array>{{"sleep", "wrixel2", "Serving the band", "delay"}}));
  inhibitor.giveBack();
  EXPECT_FALSE(isHeld());

  inhibitor.busFound(*own);
  inhibitor.take();
  inhibitor.giveBack();  // before the answer
  EXPECT_FALSE(isHeld());
  inhibitor.take();
  EXPECT_TRUE(isHeld());
  inhibitor.giveBack();
  EXPECT_FALSE(isHeld());
  EXPECT_EQ(log.lines, std::vector<std::string>{});
}

TEST_F(LogindSleepInhibitorTest, AnAbsentLoginManagerIsNoError) {
  inhibitor.busFound(*own);
  inhibitor.take();
  EXPECT_FALSE(isHeld());
  EXPECT_EQ(log.lines, std::vector<std::string>{});
  appear();
  inhibitor.take();
  EXPECT_TRUE(isHeld());
  inhibitor.giveBack();
  isRefusing = true;
  for (int i = 0; i < 2; ++i) {
    inhibitor.take();
    settle();
    inhibitor.giveBack();
  }
  EXPECT_EQ(log.count("WARN The phone may fall asleep too early"), 1U);
}

}  // namespace
}  // namespace wrixel2::companion
