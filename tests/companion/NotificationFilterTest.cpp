#include <string>

#include <gtest/gtest.h>

#include "companion/NotificationFilter.h"
#include "platform/simulated/SimulatedClock.h"

namespace wrixel2::companion {
namespace {

using namespace std::chrono_literals;

class NotificationFilterTest : public testing::Test {
 protected:
  bool passes(const std::string& app, const std::optional<std::string>& title,
              const std::string& body, std::int64_t replaced = 0) {
    return filter_.passes({app, title, body, std::nullopt, false, replaced});
  }

  platform::simulated::SimulatedClock clock_;
  NotificationFilter filter_{clock_};
};

TEST_F(NotificationFilterTest, DropsARepeatWithinTwoSecondsOfTheOneThatPassed) {
  EXPECT_TRUE(passes("Chat", "Anna", "Hi"));
  clock_.advance(1s);
  EXPECT_FALSE(passes("Chat", "Anna", "Hi"));
  clock_.advance(999'999us);
  EXPECT_FALSE(passes("Chat", "Anna", "Hi"));
  clock_.advance(1us);
  EXPECT_TRUE(passes("Chat", "Anna", "Hi"));
  // A repeat has the same app, title and body.
  EXPECT_TRUE(passes("Chat", "Anna", "Hello"));
  EXPECT_TRUE(passes("Chat", "Bert", "Hi"));
  EXPECT_TRUE(passes("Mail", "Anna", "Hi"));
  EXPECT_TRUE(passes("Chat", std::nullopt, "Hi"));
  EXPECT_FALSE(passes("Chat", "Anna", "Hi"));
  // A copy may differ in markup and blanks.
  EXPECT_TRUE(passes("Chat", "Anna & Bert", "1 <b>2</b>\n&amp; 3"));
  EXPECT_FALSE(passes("Chat", "Anna &amp; Bert", "1 2 & 3"));
  EXPECT_FALSE(passes("Chat", "Anna & Bert", "1 <i>2</i>  &amp; 3 "));
  EXPECT_TRUE(passes("Chat", "Anna & Bert", "12 & 3"));
}

TEST_F(NotificationFilterTest, AnAlarmIsNotHiddenByACopyThatLostItsButtons) {
  const AppNotification copy{"org.gnome.clocks", "Alarm", "07:00", std::nullopt, false, 0};
  AppNotification alarm = copy;
  alarm.alarm = AlarmPhase::ringing;
  EXPECT_TRUE(filter_.passes(copy));
  EXPECT_TRUE(filter_.passes(alarm));
  EXPECT_FALSE(filter_.passes(copy));
  EXPECT_FALSE(filter_.passes(alarm));
  alarm.alarm = AlarmPhase::snoozing;
  EXPECT_TRUE(filter_.passes(alarm));
}

TEST_F(NotificationFilterTest, DropsTransientOnesAndForgetsThem) {
  EXPECT_FALSE(filter_.passes({"Shell", "Volume", "50 %", std::nullopt, true, 0}));
  EXPECT_TRUE(passes("Shell", "Volume", "50 %"));
}

TEST_F(NotificationFilterTest, DropsUpdatesInPlaceThatSayNothingNew) {
  EXPECT_TRUE(passes("Files", "Copying", "a.iso"));
  EXPECT_TRUE(passes("Chat", "Anna", "Hi"));
  clock_.advance(10s);
  EXPECT_FALSE(passes("Files", "Copying", "a.iso", 4));
  EXPECT_TRUE(passes("Files", "Copying", "b.iso", 4));
  clock_.advance(10s);
  EXPECT_FALSE(passes("Files", "Copying", "b.iso", 4));
  // Back to an earlier text is news.
  EXPECT_TRUE(passes("Files", "Copying", "a.iso", 4));
  // And so is the same text in a notification of its own.
  EXPECT_TRUE(passes("Chat", "Anna", "Hi"));
  // Two that are updated in turns do not mix.
  EXPECT_TRUE(passes("Files", "Moving", "c.iso", 5));
  clock_.advance(10s);
  EXPECT_FALSE(passes("Files", "Copying", "a.iso", 4));
  EXPECT_FALSE(passes("Files", "Moving", "c.iso", 5));
}

TEST_F(NotificationFilterTest, RemembersABoundedNumber) {
  EXPECT_TRUE(passes("Chat", "Anna", "first"));
  for (int i = 0; i < 64; ++i) {
    EXPECT_TRUE(passes("Chat", "Anna", std::to_string(i)));
  }
  EXPECT_TRUE(passes("Chat", "Anna", "first"));
  EXPECT_FALSE(passes("Chat", "Anna", "63"));
}

}  // namespace
}  // namespace wrixel2::companion
