#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/AppNotification.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Dictionary;

Array notifyArguments(const std::string& app, int replaced, const std::string& summary,
                      const std::string& body, const Dictionary& hints = {}) {
  return {app, replaced, "icon", summary, body, Array{"default", "Open"}, hints, -1};
}

struct NotifyCase {
  std::string name;
  Array arguments;
  AppNotification expected;
};

class NotifyTest : public testing::TestWithParam<NotifyCase> {};

TEST_P(NotifyTest, BecomesWhatTheAppSaid) {
  auto notification = notificationFromNotify(GetParam().arguments);
  ASSERT_TRUE(notification);
  EXPECT_EQ(std::exchange(notification->appName, {}), *GetParam().arguments[0].text());
  EXPECT_EQ(*notification, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Notifications, NotifyTest,
    testing::Values(
        NotifyCase{"applicationName",
                   notifyArguments("Chat", 0, "Anna", "See <b>you</b> &amp; me"),
                   {"Chat", "Anna", "See you & me", std::nullopt, false, 0}},
        NotifyCase{
            "desktopEntryWins",
            notifyArguments("Chat", 0, "Anna", "Hi", {{"desktop-entry", "org.example.Chat"}}),
            {"org.example.Chat", "Anna", "Hi", std::nullopt, false, 0}},
        NotifyCase{"desktopEntryAsAFileName",
                   notifyArguments("Chat", 0, "Anna", "Hi",
                                   {{"desktop-entry", "org.example.Chat.desktop"}}),
                   {"org.example.Chat", "Anna", "Hi", std::nullopt, false, 0}},
        NotifyCase{"desktopEntryOfAnotherKind",
                   notifyArguments("Chat", 0, "Anna", "Hi", {{"desktop-entry", 7}}),
                   {"Chat", "Anna", "Hi", std::nullopt, false, 0}},
        NotifyCase{"messageOfAPerson",
                   notifyArguments("Chat", 0, "Anna", "Hi", {{"category", "im.received"}}),
                   {"Chat", "Anna", "Hi", "Anna", false, 0}},
        NotifyCase{"otherCategory",
                   notifyArguments("Mail", 0, "Anna", "Hi", {{"category", "email.arrived"}}),
                   {"Mail", "Anna", "Hi", std::nullopt, false, 0}},
        NotifyCase{"categoryThatOnlyBeginsAlike",
                   notifyArguments("Camera", 0, "Anna", "Hi", {{"category", "image"}}),
                   {"Camera", "Anna", "Hi", std::nullopt, false, 0}},
        NotifyCase{"noTitle",
                   notifyArguments("Chat", 0, "", "Hi", {{"category", "im"}}),
                   {"Chat", std::nullopt, "Hi", std::nullopt, false, 0}},
        NotifyCase{"summaryIsNoMarkup",
                   notifyArguments("Chat", 0, "a <b> c", ""),
                   {"Chat", "a <b> c", "", std::nullopt, false, 0}},
        NotifyCase{"transientUpdate",
                   notifyArguments("Player", 9, "Song", "", {{"transient", true}}),
                   {"Player", "Song", "", std::nullopt, true, 9}}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(AppNotificationTest, AGtkNotificationIsPlainText) {
  const auto notification = notificationFromAddNotification(
      {"org.example.Chat", "message-1",
       Dictionary{{"title", "Anna"}, {"body", "1 <b>2</b> &amp;"}, {"category", "im.received"}}});
  ASSERT_TRUE(notification);
  AppNotification expected{"org.example.Chat", "Anna", "1 <b>2</b> &amp;", "Anna", false, 0};
  expected.handle = handleOfName("org.example.Chat", "message-1");
  EXPECT_EQ(*notification, expected);
}

TEST(AppNotificationTest, APortalsNotificationMayHaveMarkup) {
  const auto bodyOf = [](const Dictionary& details) {
    const auto notification = notificationFromPortal({"org.example.Chat", "1", details});
    return notification ? notification->body : "none";
  };
  EXPECT_EQ(bodyOf({{"title", "Anna"}, {"body", "1 <b>2</b>"}}), "1 <b>2</b>");
  EXPECT_EQ(bodyOf({{"title", "Anna"}, {"markup-body", "1 <b>2</b> &amp; 3"}}), "1 2 & 3");
  EXPECT_EQ(bodyOf({}), "");
  EXPECT_FALSE(notificationFromPortal({"org.example.Chat", "1", "text"}));
}

struct AlarmCase {
  std::string name;
  std::string app;
  std::vector<std::string> actions;
  std::string event;
  AlarmPhase phase;
};

class AlarmTest : public testing::TestWithParam<AlarmCase> {};

TEST_P(AlarmTest, IsToldByActionsAndEventsInEveryForm) {
  Array pairs;
  Array buttons;
  for (const std::string& action : GetParam().actions) {
    pairs.insert(pairs.end(), {action, "Label"});
    buttons.emplace_back(Dictionary{{"label", "Label"}, {"action", action}});
  }
  const auto notified = notificationFromNotify(
      {"Clocks", 0, "", "Alarm", "Wake up", pairs,
       Dictionary{{"desktop-entry", GetParam().app}, {"x-kde-eventId", GetParam().event}}, -1});
  ASSERT_TRUE(notified);
  EXPECT_EQ(notified->alarm, GetParam().phase);
  if (!GetParam().event.empty()) {
    return;
  }
  const Array arguments{GetParam().app, "id", Dictionary{{"title", "A"}, {"buttons", buttons}}};
  EXPECT_EQ(notificationFromAddNotification(arguments)->alarm, GetParam().phase);
  EXPECT_EQ(notificationFromPortal(arguments)->alarm, GetParam().phase);
}

INSTANTIATE_TEST_SUITE_P(
    Notifications, AlarmTest,
    testing::Values(
        AlarmCase{"ringing",
                  "org.gnome.clocks",
                  {"app.stop-alarm::1", "app.snooze-alarm::1"},
                  "",
                  AlarmPhase::ringing},
        AlarmCase{"ringingWithoutTarget",
                  "org.gnome.clocks",
                  {"app.snooze-alarm", "app.stop-alarm"},
                  "",
                  AlarmPhase::ringing},
        AlarmCase{"ringingWithPrintedTarget",
                  "org.gnome.clocks",
                  {"app.stop-alarm('a b')", "app.snooze-alarm('a b')"},
                  "",
                  AlarmPhase::ringing},
        AlarmCase{"snoozing", "org.gnome.clocks", {"app.stop-alarm::1"}, "", AlarmPhase::snoozing},
        AlarmCase{"timer", "org.gnome.clocks", {"app.stop-timer"}, "", AlarmPhase::none},
        AlarmCase{
            "actionThatBeginsAlike", "org.gnome.clocks", {"app.stop-alarms"}, "", AlarmPhase::none},
        AlarmCase{"noActions", "org.gnome.clocks", {}, "", AlarmPhase::none},
        AlarmCase{"anotherApp",
                  "org.example.Clocks",
                  {"app.stop-alarm::1", "app.snooze-alarm::1"},
                  "",
                  AlarmPhase::none},
        AlarmCase{"kde", "org.kde.kclock", {"1", "2"}, "alarm", AlarmPhase::ringing},
        AlarmCase{"kdeSnoozed", "org.kde.kclock", {"1"}, "alarmSnoozed", AlarmPhase::snoozing},
        AlarmCase{"kdeTimer", "org.kde.kclock", {"1"}, "timerFinished", AlarmPhase::none},
        AlarmCase{"kdeAnotherApp", "org.kde.korganizer", {"1"}, "alarm", AlarmPhase::none}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(AppNotificationTest, AnAlarmIsTheClockAppsAndAlwaysHasATitle) {
  struct {
    AlarmPhase phase;
    std::optional<std::string> title;
    const char* bulletinsTitle;
  } const cases[] = {
      {AlarmPhase::ringing, "Wake up", "Wake up"},
      {AlarmPhase::ringing, std::nullopt, "Alarm"},
      {AlarmPhase::ringing, "Snoozing", "Alarm"},  // its owner's name for it; it rings
      {AlarmPhase::snoozing, "Wake up", "Snoozing"},
      {AlarmPhase::snoozing, std::nullopt, "Snoozing"},
  };
  for (const auto& c : cases) {
    AppNotification alarm{"org.gnome.clocks", c.title, "07:00", std::nullopt, false, 0};
    alarm.alarm = c.phase;
    EXPECT_EQ(bulletinUserInfo(alarm), (Dictionary{{"sectionID", "com.apple.mobiletimer"},
                                                   {"title", c.bulletinsTitle},
                                                   {"message", "07:00"}}));
  }
}

TEST(AppNotificationTest, OtherArgumentsAreRefused) {
  const std::vector<Array> wrong = {
      {},
      {"Chat", 0, "icon", "Anna"},
      {"Chat", 0, "icon", "Anna", "Hi", Array{}, "no hints", -1},
      {7, 0, "icon", "Anna", "Hi", Array{}, Dictionary{}, -1},
  };
  for (const Array& arguments : wrong) {
    EXPECT_FALSE(notificationFromNotify(arguments));
    EXPECT_FALSE(notificationFromAddNotification(arguments));
  }
}

TEST(AppNotificationTest, TheBulletinLeavesOutWhatIsAbsent) {
  EXPECT_EQ(bulletinUserInfo({"Chat", "Anna", "Hi", "Anna", false, 0}),
            (Dictionary{
                {"sectionID", "Chat"}, {"title", "Anna"}, {"message", "Hi"}, {"sender", "Anna"}}));
  EXPECT_EQ(bulletinUserInfo({"Chat", std::nullopt, "Hi", std::nullopt, false, 0}),
            (Dictionary{{"sectionID", "Chat"}, {"message", "Hi"}}));
}

}  // namespace
}  // namespace wrixel2::companion
