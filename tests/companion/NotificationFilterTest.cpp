#include <utility>

#include <gtest/gtest.h>

#include "companion/NotificationFilter.h"
#include "platform/simulated/SimulatedClock.h"

namespace wrixel2::companion {
namespace {

using namespace std::chrono_literals;

class NotificationFilterTest : public testing::Test {
 protected:
  static AppNotification notification(const std::string& app, const std::string& title,
                                      const std::string& body, std::int64_t replaced = 0) {
    return {app, title, body, std::nullopt, false, replaced};
  }

  platform::simulated::SimulatedClock clock_;
  NotificationFilter filter_{clock_};
};

TEST_F(NotificationFilterTest, DropsARepeatWithinTwoSecondsOfTheOneThatPassed) {
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hi")));
  clock_.advance(1s);
  EXPECT_FALSE(filter_.passes(notification("Chat", "Anna", "Hi")));
  clock_.advance(999'999us);
  EXPECT_FALSE(filter_.passes(notification("Chat", "Anna", "Hi")));
  clock_.advance(1us);
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hi")));
}

TEST_F(NotificationFilterTest, ARepeatHasTheSameAppTitleAndBody) {
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hi")));
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hello")));
  EXPECT_TRUE(filter_.passes(notification("Chat", "Bert", "Hi")));
  EXPECT_TRUE(filter_.passes(notification("Mail", "Anna", "Hi")));
  EXPECT_TRUE(filter_.passes({"Chat", std::nullopt, "Hi", std::nullopt, false, 0}));
  EXPECT_FALSE(filter_.passes(notification("Chat", "Anna", "Hi")));
}

TEST_F(NotificationFilterTest, ACopyMayDifferInMarkupAndBlanks) {
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna & Bert", "1 <b>2</b>\n&amp; 3")));
  for (const auto& [title, body] : {std::pair("Anna &amp; Bert", "1 2 & 3"),
                                    std::pair("Anna & Bert", "1 <i>2</i>  &amp; 3 ")}) {
    EXPECT_FALSE(filter_.passes(notification("Chat", title, body))) << body;
  }
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna & Bert", "12 & 3")));
}

TEST_F(NotificationFilterTest, AnAlarmIsNotHiddenByACopyThatLostItsButtons) {
  const AppNotification copy = notification("org.gnome.clocks", "Alarm", "07:00");
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
  AppNotification volume = notification("Shell", "Volume", "50 %");
  volume.isTransient = true;
  EXPECT_FALSE(filter_.passes(volume));
  volume.isTransient = false;
  EXPECT_TRUE(filter_.passes(volume));
}

TEST_F(NotificationFilterTest, DropsUpdatesInPlaceThatSayNothingNew) {
  EXPECT_TRUE(filter_.passes(notification("Files", "Copying", "a.iso")));
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hi")));
  clock_.advance(10s);
  EXPECT_FALSE(filter_.passes(notification("Files", "Copying", "a.iso", 4)));
  EXPECT_TRUE(filter_.passes(notification("Files", "Copying", "b.iso", 4)));
  clock_.advance(10s);
  EXPECT_FALSE(filter_.passes(notification("Files", "Copying", "b.iso", 4)));
  // Back to an earlier text is news.
  EXPECT_TRUE(filter_.passes(notification("Files", "Copying", "a.iso", 4)));
  // And so is the same text in a notification of its own.
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "Hi")));
  // Two that are updated in turns do not mix.
  EXPECT_TRUE(filter_.passes(notification("Files", "Moving", "c.iso", 5)));
  clock_.advance(10s);
  EXPECT_FALSE(filter_.passes(notification("Files", "Copying", "a.iso", 4)));
  EXPECT_FALSE(filter_.passes(notification("Files", "Moving", "c.iso", 5)));
}

TEST_F(NotificationFilterTest, RemembersABoundedNumber) {
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "first")));
  for (int i = 0; i < 64; ++i) {
    EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", std::to_string(i))));
  }
  EXPECT_TRUE(filter_.passes(notification("Chat", "Anna", "first")));
  EXPECT_FALSE(filter_.passes(notification("Chat", "Anna", "63")));
}

}  // namespace
}  // namespace wrixel2::companion
