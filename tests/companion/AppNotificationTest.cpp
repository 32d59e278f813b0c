#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companion/AppNotification.h"

namespace wrixel2::companion {
namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;

constexpr auto kNone = std::nullopt;

Array notifyArguments(const std::string& app, int replaced, const std::string& summary,
                      const std::string& body, const Dictionary& hints = {}) {
  return {app, replaced, "icon", summary, body, Array{"default", "Open"}, hints, -1};
}

AppNotification notification(std::string app, std::optional<std::string> title, std::string body,
                             std::optional<std::string> sender = kNone) {
  return {std::move(app), std::move(title), std::move(body), std::move(sender), false, 0};
}

TEST(AppNotificationTest, BecomesWhatTheAppSaid) {
  const auto read = [](const std::string& app, const Array& arguments) {
    auto notified = notificationFromNotify(arguments);
    EXPECT_TRUE(notified);
    EXPECT_EQ(std::exchange(notified->appName, {}), app);
    return *notified;
  };
  EXPECT_EQ(read("Chat", notifyArguments("Chat", 0, "a <b> c", "See <b>you</b> &amp; me")),
            notification("Chat", "a <b> c", "See you & me"));
  EXPECT_EQ(read("Chat", notifyArguments("Chat", 0, "", "Hi", {{"category", "im"}})),
            notification("Chat", kNone, "Hi"));
  AppNotification update = notification("Player", "Song", "");
  update.isTransient = true;
  update.replacedId = 9;
  EXPECT_EQ(read("Player", notifyArguments("Player", 9, "Song", "", {{"transient", true}})),
            update);

  const struct {
    const char* hint;
    Value value;
    const char* app;
    std::optional<std::string> sender;
  } kHints[] = {
      {"desktop-entry", "org.example.Chat", "org.example.Chat", kNone},
      {"desktop-entry", "org.example.Chat.desktop", "org.example.Chat", kNone},
      {"desktop-entry", 7, "Chat", kNone},
      {"category", "im.received", "Chat", "Anna"},
      {"category", "email.arrived", "Chat", kNone},
      {"category", "image", "Chat", kNone},
  };
  for (const auto& c : kHints) {
    SCOPED_TRACE(c.value.text() != nullptr ? *c.value.text() : "another kind");
    EXPECT_EQ(read("Chat", notifyArguments("Chat", 0, "Anna", "Hi", {{c.hint, c.value}})),
              notification(c.app, "Anna", "Hi", c.sender));
  }
}

TEST(AppNotificationTest, AGtkNotificationIsPlainTextAndAPortalsMayHaveMarkup) {
  const std::string kApp = "org.example.Chat";
  AppNotification expected = notification(kApp, "Anna", "1 <b>2</b> &amp;", "Anna");
  expected.handle = handleOfName(kApp, "message-1");
  const Dictionary details{
      {"title", "Anna"}, {"body", "1 <b>2</b> &amp;"}, {"category", "im.received"}};
  EXPECT_EQ(*notificationFromAddNotification({kApp, "message-1", details}), expected);

  const auto bodyOf = [&](const Value& portals) {
    const auto notified = notificationFromPortal({kApp, "1", portals});
    return notified ? notified->body : "none";
  };
  EXPECT_EQ(bodyOf(Dictionary{{"title", "Anna"}, {"body", "1 <b>2</b>"}}), "1 <b>2</b>");
  EXPECT_EQ(bodyOf(Dictionary{{"markup-body", "1 <b>2</b> &amp; 3"}}), "1 2 & 3");
  EXPECT_EQ(bodyOf(Dictionary{}), "");
  EXPECT_EQ(bodyOf("text"), "none");
}

TEST(AppNotificationTest, AnAlarmIsToldByActionsAndEventsInEveryForm) {
  const std::string kClocks = "org.gnome.clocks";
  const std::string kKClock = "org.kde.kclock";
  const struct {
    std::string app;
    const char* actions;  ///< between semicolons
    std::string event;
    AlarmPhase phase;
  } kCases[] = {
      {kClocks, "app.stop-alarm::1;app.snooze-alarm::1", "", AlarmPhase::ringing},
      {kClocks, "app.snooze-alarm;app.stop-alarm", "", AlarmPhase::ringing},
      {kClocks, "app.stop-alarm('a b');app.snooze-alarm('a b')", "", AlarmPhase::ringing},
      {kClocks, "app.stop-alarm::1", "", AlarmPhase::snoozing},
      {kClocks, "app.stop-timer", "", AlarmPhase::none},
      {kClocks, "app.stop-alarms", "", AlarmPhase::none},
      {kClocks, "", "", AlarmPhase::none},
      {"org.example.Clocks", "app.stop-alarm;app.snooze-alarm", "", AlarmPhase::none},
      {kKClock, "1;2", "alarm", AlarmPhase::ringing},
      {kKClock, "1", "alarmSnoozed", AlarmPhase::snoozing},
      {kKClock, "1", "timerFinished", AlarmPhase::none},
      {"org.kde.korganizer", "1", "alarm", AlarmPhase::none},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.app + " " + c.actions + c.event);
    Array pairs;
    Array buttons;
    std::istringstream actions(c.actions);
    for (std::string action; std::getline(actions, action, ';');) {
      pairs.insert(pairs.end(), {action, "Label"});
      buttons.emplace_back(Dictionary{{"label", "Label"}, {"action", action}});
    }
    const Dictionary hints{{"desktop-entry", c.app}, {"x-kde-eventId", c.event}};
    EXPECT_EQ(notificationFromNotify({"Clocks", 0, "", "Alarm", "07:00", pairs, hints, -1})->alarm,
              c.phase);
    if (c.event.empty()) {
      const Array arguments{c.app, "id", Dictionary{{"title", "A"}, {"buttons", buttons}}};
      EXPECT_EQ(notificationFromAddNotification(arguments)->alarm, c.phase);
      EXPECT_EQ(notificationFromPortal(arguments)->alarm, c.phase);
    }
  }
}

TEST(AppNotificationTest, WhatAnAppSaysIsHeldToALength) {
  const std::string kLong(100'000, 'x');
  const std::string kName(255, 'x');
  const std::string kText(4096, 'x');
  AppNotification expected = notification(kName, kText, kText, kName);
  expected.appName = kName;
  const Dictionary details{
      {"title", kLong}, {"body", kLong}, {"category", "im"}, {"desktop-entry", kLong}};
  EXPECT_EQ(*notificationFromNotify(notifyArguments(kLong, 0, kLong, kLong, details)), expected);
  expected.appName = "";
  expected.handle = "name " + kName + " " + kName;
  EXPECT_EQ(*notificationFromAddNotification({kLong, kLong, details}), expected);
  const Dictionary markup{{"title", kLong}, {"markup-body", kLong}, {"category", "im"}};
  EXPECT_EQ(*notificationFromPortal({kLong, kLong, markup}), expected);
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

TEST(AppNotificationTest, TheBulletinLeavesOutWhatIsAbsentAndNamesAlarms) {
  EXPECT_EQ(bulletinUserInfo(notification("Chat", "Anna", "Hi", "Anna")),
            (Dictionary{
                {"sectionID", "Chat"}, {"title", "Anna"}, {"message", "Hi"}, {"sender", "Anna"}}));
  EXPECT_EQ(bulletinUserInfo(notification("Chat", kNone, "Hi")),
            (Dictionary{{"sectionID", "Chat"}, {"message", "Hi"}}));
  const struct {
    AlarmPhase phase;
    std::optional<std::string> title;
    const char* bulletinsTitle;
  } kAlarms[] = {
      {AlarmPhase::ringing, "Wake up", "Wake up"},   {AlarmPhase::ringing, kNone, "Alarm"},
      {AlarmPhase::ringing, "Snoozing", "Alarm"},  // its owner's name for it; it rings
      {AlarmPhase::snoozing, "Wake up", "Snoozing"}, {AlarmPhase::snoozing, kNone, "Snoozing"},
  };
  for (const auto& c : kAlarms) {
    AppNotification alarm = notification("org.gnome.clocks", c.title, "07:00");
    alarm.alarm = c.phase;
    EXPECT_EQ(bulletinUserInfo(alarm), (Dictionary{{"sectionID", "com.apple.mobiletimer"},
                                                   {"title", c.bulletinsTitle},
                                                   {"message", "07:00"}}));
  }
}

}  // namespace
}  // namespace wrixel2::companion
