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

TEST_F(ClockKeeperTest, FollowsTheClockAndTheZone) {
  const ClockKeeper keeper(system.handle(), [this] { ++leaps; });
  system.runLoop.runFor(400 * 24h);
  EXPECT_EQ(leaps, 0);
  EXPECT_EQ(system.runLoop.wakeups(), 0U) << "a clock that only runs costs nothing";
  system.clock.setWallClock(system.clock.now() - 3h);
  system.runLoop.localTimeChanged();
  system.runLoop.runUntilIdle();
  EXPECT_EQ(leaps, 1);
}

TEST_F(ClockKeeperTest, FollowsSummerTime) {
  system.clock.setWallClock(sys_days(year(2026) / 3 / 2) + 12h);
  system.timeZone.setCentralEurope();
  const ClockKeeper keeper(system.handle(), [this] { ++leaps; });
  system.runLoop.advanceTo(sys_days(year(2026) / 3 / 29) + 59min + 59s);
  EXPECT_EQ(leaps, 0);
  system.runLoop.advanceTo(sys_days(year(2026) / 3 / 29) + 1h);
  EXPECT_EQ(leaps, 1);
  system.runLoop.advanceTo(sys_days(year(2026) / 10 / 25) + 1h);
  EXPECT_EQ(leaps, 2);

  // The owner moves to where there is none: what was awaited is not.
  system.timeZone.setSecondsFromGMT(3600 * 9);
  system.runLoop.localTimeChanged();
  system.runLoop.runFor(400 * 24h);
  EXPECT_EQ(leaps, 3);
}

TEST_F(ClockKeeperTest, FindsTheSecondOfATransition) {
  const auto from = sys_days(year(2026) / 3 / 2) + 12h;
  EXPECT_EQ(ClockKeeper::nextZoneTransition(system.timeZone, from), std::nullopt);
  system.timeZone.setCentralEurope();
  EXPECT_EQ(ClockKeeper::nextZoneTransition(system.timeZone, from),
            sys_days(year(2026) / 3 / 29) + 1h);
  EXPECT_EQ(ClockKeeper::nextZoneTransition(system.timeZone, sys_days(year(2026) / 3 / 29) + 1h),
            sys_days(year(2026) / 10 / 25) + 1h);
  EXPECT_EQ(ClockKeeper::nextZoneTransition(system.timeZone,
                                            sys_days(year(2026) / 3 / 29) + 59min + 59s + 500ms),
            sys_days(year(2026) / 3 / 29) + 1h);
}

}  // namespace
}  // namespace wrixel2::daemon
