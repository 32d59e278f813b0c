#include <chrono>

#include <gtest/gtest.h>

#include "daemon/ClockKeeper.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::daemon {
namespace {

using namespace std::chrono_literals;
using std::chrono::sys_days;
using std::chrono::year;

class ClockKeeperTest : public testing::Test {
 protected:
  platform::simulated::SimulatedPlatform system;
  int leaps = 0;
};

constexpr auto kSpring = sys_days(year(2026) / 3 / 29) + 1h;
constexpr auto kAutumn = sys_days(year(2026) / 10 / 25) + 1h;

TEST_F(ClockKeeperTest, FollowsTheClockTheZoneAndSummerTime) {
  const ClockKeeper keeper(system.handle(), [this] { ++leaps; });
  system.runLoop.runFor(400 * 24h);
  EXPECT_EQ(leaps, 0);
  EXPECT_EQ(system.runLoop.wakeups(), 0U) << "a clock that only runs costs nothing";
  system.clock.setWallClock(kSpring - 30 * 24h);
  system.timeZone.setCentralEurope();
  system.runLoop.localTimeChanged();
  system.runLoop.runUntilIdle();
  EXPECT_EQ(leaps, 1);

  system.runLoop.advanceTo(kSpring - 1s);
  EXPECT_EQ(leaps, 1);
  system.runLoop.advanceTo(kSpring);
  EXPECT_EQ(leaps, 2);
  system.runLoop.advanceTo(kAutumn);
  EXPECT_EQ(leaps, 3);

  // The owner moves to where there is none: what was awaited is not.
  system.timeZone.setSecondsFromGMT(3600 * 9);
  system.runLoop.localTimeChanged();
  system.runLoop.runFor(400 * 24h);
  EXPECT_EQ(leaps, 4);
}

TEST_F(ClockKeeperTest, FindsTheSecondOfATransition) {
  const auto next = [this](platform::Date from) {
    return ClockKeeper::nextZoneTransition(system.timeZone, from);
  };
  EXPECT_EQ(next(kSpring - 30 * 24h), std::nullopt);
  system.timeZone.setCentralEurope();
  EXPECT_EQ(next(kSpring - 30 * 24h), kSpring);
  EXPECT_EQ(next(kSpring - 500ms), kSpring);
  EXPECT_EQ(next(kSpring), kAutumn);
}

}  // namespace
}  // namespace wrixel2::daemon
