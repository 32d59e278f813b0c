#include <string>

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
  const auto notification = notificationFromNotify(GetParam().arguments);
  ASSERT_TRUE(notification);
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
  EXPECT_EQ(*notification,
            (AppNotification{"org.example.Chat", "Anna", "1 <b>2</b> &amp;", "Anna", false, 0}));
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
