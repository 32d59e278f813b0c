#include <chrono>

#include <gtest/gtest.h>

#include "band/BandClock.h"
#include "band/BandProfile.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::band {
namespace {

using namespace std::chrono_literals;
using platform::Bytes;

class BandClockTest : public ::testing::Test {
 protected:
  platform::simulated::SimulatedClock platformClock_;  // Monday 2026-03-02 12:00:00 UTC
  platform::simulated::SimulatedTimeZone zone_;
};

TEST_F(BandClockTest, StartsWithTheLocalTime) {
  zone_.setSecondsFromGMT(-(3 * 3600 + 30 * 60));
  const BandClock clock(platformClock_, zone_);
  EXPECT_EQ(clock.bytes(), (Bytes{0xEA, 0x07,  // 2026
                                  3, 2, 8, 30, 0,
                                  2,              // Monday
                                  0, 0, 0xF2}));  // -14 quarter hours
  EXPECT_EQ(clock.shortDate(24h * 2), (Bytes{0xEA, 0x07, 2, 28, 8, 30, 0, 0xF2}));
}

TEST_F(BandClockTest, RunsFromWhatItWasSetTo) {
  const Bytes kMidnight{0xEA, 7, 3, 2, 0, 0, 0, 2, 0, 0, 4};
  const struct {
    const char* name;
    Bytes set;
    platform::TimeInterval later;
    Bytes shown;
  } cases[] = {
      {"part of a second", kMidnight, 999ms, kMidnight},
      {"a stopwatch", kMidnight, 1h + 2min + 3s, {0xEA, 7, 3, 2, 1, 2, 3, 2, 0, 0, 4}},
      {"over midnight, Saturday to Sunday",
       {0xEA, 7, 2, 28, 23, 59, 59, 7, 0, 0, 0xF0},
       1s,
       {0xEA, 7, 3, 1, 0, 0, 0, 1, 0, 0, 0xF0}},
      {"over the end of a year",
       {0xE8, 7, 12, 31, 23, 59, 59, 3, 0, 0, 0},
       2s,
       {0xE9, 7, 1, 1, 0, 0, 1, 4, 0, 0, 0}},
      {"into a leap day",
       {0xE8, 7, 2, 28, 23, 0, 0, 4, 9, 9, 0},
       1h,
       {0xE8, 7, 2, 29, 0, 0, 0, 5, 0, 0, 0}},
  };
  BandClock clock(platformClock_, zone_);
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    ASSERT_EQ(clock.set(test.set), std::nullopt);
    // The host's clock and zone are nothing to the band.
    platformClock_.setWallClock(platformClock_.now() + 5h);
    zone_.setSecondsFromGMT(7200);
    platformClock_.advance(test.later);
    EXPECT_EQ(clock.bytes(), test.shown);
  }
}

TEST_F(BandClockTest, KnowsTheWeekdayOfEveryDateAndTheZonesThereAre) {
  const struct {
    const char* name;
    Bytes time;
  } cases[] = {
      {"29 February 1600, a Tuesday", {0x40, 6, 2, 29, 1, 2, 3, 3, 0, 0, 0}},
      {"1 March 1900, a Thursday", {0x6C, 7, 3, 1, 0, 0, 0, 5, 0, 0, 0}},
      {"31 December 1969, a Wednesday", {0xB1, 7, 12, 31, 23, 59, 59, 4, 0, 0, 0x80}},
      {"29 February 2000, a Tuesday", {0xD0, 7, 2, 29, 0, 0, 0, 3, 0, 0, 0xD0}},
      {"28 February 2100, a Sunday", {0x34, 8, 2, 28, 0, 0, 0, 1, 0, 0, 23}},
      {"1 March 2100, a Monday", {0x34, 8, 3, 1, 0, 0, 0, 2, 0, 0, 0xDA}},
      {"1 January 2027, a Friday", {0xEB, 7, 1, 1, 0, 0, 0, 6, 0, 0, 56}},
  };
  BandClock clock(platformClock_, zone_);
  for (const auto& test : cases) {
    EXPECT_EQ(clock.set(test.time), std::nullopt) << test.name;
    EXPECT_EQ(clock.bytes(), test.time) << test.name;
  }
  // From that Friday on, through a leap year.
  for (int weekday = 6; clock.bytes()[0] < 0xED; weekday = weekday % 7 + 1) {
    ASSERT_EQ(clock.bytes()[7], weekday) << platform::description(clock.bytes());
    platformClock_.advance(24h);
  }
}

TEST_F(BandClockTest, RefusesWhatIsNoTimeAndRunsOn) {
  const long length = att_error::invalidAttributeValueLength;
  const long notAllowed = att_error::valueNotAllowed;
  const struct {
    const char* name;
    Bytes value;
    long code;
  } cases[] = {
      {"nothing", {}, length},
      {"ten bytes", {0xEA, 7, 3, 2, 0, 0, 0, 2, 0, 0}, length},
      {"the mark of a missing date", Bytes(6, 0xFF), length},
      {"year 0", {0, 0, 3, 2, 0, 0, 0, 2, 0, 0, 0}, notAllowed},
      {"a year beyond the calendar", {0xFF, 0xFF, 3, 2, 0, 0, 0, 2, 0, 0, 0}, notAllowed},
      {"month 13", {0xEA, 7, 13, 2, 0, 0, 0, 2, 0, 0, 0}, notAllowed},
      {"30 February", {0xEA, 7, 2, 30, 0, 0, 0, 2, 0, 0, 0}, notAllowed},
      {"24 o'clock", {0xEA, 7, 3, 2, 24, 0, 0, 2, 0, 0, 0}, notAllowed},
      {"minute 60", {0xEA, 7, 3, 2, 0, 60, 0, 2, 0, 0, 0}, notAllowed},
      {"second 60", {0xEA, 7, 3, 2, 0, 0, 60, 2, 0, 0, 0}, notAllowed},
      {"a Monday that is called a Sunday", {0xEA, 7, 3, 2, 0, 0, 0, 1, 0, 0, 0}, notAllowed},
      {"no weekday", {0xEA, 7, 3, 2, 0, 0, 0, 0, 0, 0, 0}, notAllowed},
      {"further west than any zone", {0xEA, 7, 3, 2, 0, 0, 0, 2, 0, 0, 0xCF}, notAllowed},
      {"further east than any zone", {0xEA, 7, 3, 2, 0, 0, 0, 2, 0, 0, 57}, notAllowed},
  };
  BandClock clock(platformClock_, zone_);
  const Bytes before = clock.bytes();
  for (const auto& test : cases) {
    const auto error = clock.set(test.value);
    ASSERT_TRUE(error) << test.name;
    EXPECT_EQ(error->code, test.code) << test.name;
    EXPECT_EQ(clock.bytes(), before) << test.name;
  }
}

}  // namespace
}  // namespace wrixel2::band
