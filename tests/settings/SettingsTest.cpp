#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "settings/PreferenceChanges.h"
#include "settings/Settings.h"
#include "settings/SettingsParser.h"

namespace wrixel2::settings {
namespace {

using platform::Dictionary;

Dictionary prefsOf(const std::string& text, const std::vector<std::string>& seenApps = {}) {
  const ParsedSettings parsed = parseSettings(text);
  EXPECT_TRUE(parsed.errors.empty()) << parsed.errors.front().message;
  return prefsDictionary(parsed.settings, seenApps);
}

TEST(SettingsTest, AFileBecomesTheDaemonsDictionary) {
  EXPECT_EQ(prefsOf(""), Dictionary{});
  EXPECT_EQ(prefsOf(R"(
      enabled = true
      hrInterval = 30
      onlyLocked = false
      timeout = -1

      [apps."org.example.Chat"]
      icon = 9
      pattern = 4
      preview = true
    )"),
            (Dictionary{{"enabled", true},
                        {"hrInterval", 30},
                        {"onlyLocked", false},
                        {"timeout", -1},
                        {"MBIcon-org.example.Chat", 9},
                        {"MBRepeat-org.example.Chat", 0},
                        {"MBPattern-org.example.Chat", 4},
                        {"MBPreview-org.example.Chat", true}}));
}

TEST(SettingsTest, OtherAppsAreTheSeenOnesWithoutATable) {
  const std::string text = R"(
      [apps."*"]
      icon = 2
      [apps.Chat]
      icon = 9
    )";
  EXPECT_EQ(prefsOf(text).count("MBIcon-*"), 0U);
  const Dictionary prefs = prefsOf(text, {"Chat", "Mail"});
  EXPECT_EQ(prefs.size(), 8U);
  EXPECT_EQ(platform::intForKey(prefs, "MBIcon-Chat"), 9);
  EXPECT_EQ(platform::intForKey(prefs, "MBIcon-Mail"), 2);
  // Without [apps."*"], an app that was merely seen gets nothing.
  EXPECT_EQ(prefsOf("", {"Mail"}), Dictionary{});
}

TEST(SettingsTest, TheCompanionsTablesAreNotTheDaemons) {
  const ParsedSettings parsed = parseSettings(R"(
      [battery]
      alertBelow = 25
      [doNotDisturb]
      phoshProfiles = ["quiet", "silent"]
      [button]
      window = 700
      once = "playPause"
      thrice = ["notify-send", "The band", "calls"]
    )");
  ASSERT_TRUE(parsed.errors.empty()) << parsed.errors.front().message;
  EXPECT_TRUE(parsed.warnings.empty());
  EXPECT_TRUE(prefsDictionary(parsed.settings, {}).empty());
  CompanionSettings expected;
  expected.lowBattery = 25;
  expected.silentProfiles = {"quiet", "silent"};
  expected.buttonWindow = 700;
  expected.buttonActions = {
      ButtonAction{ButtonAction::Kind::playPause, {}}, ButtonAction{},
      ButtonAction{ButtonAction::Kind::command, {"notify-send", "The band", "calls"}}};
  EXPECT_EQ(parsed.settings.companion, expected);
}

struct ErrorCase {
  std::string name;
  std::string text;
  std::vector<std::uint32_t> errorLines;
  std::string inMessage;
};

class SettingsErrorTest : public testing::TestWithParam<ErrorCase> {};

TEST_P(SettingsErrorTest, IsReportedWithItsLine) {
  const ParsedSettings parsed = parseSettings(GetParam().text);
  std::vector<std::uint32_t> lines;
  for (const SettingsProblem& error : parsed.errors) {
    lines.push_back(error.line);
  }
  ASSERT_EQ(lines, GetParam().errorLines);
  EXPECT_NE(parsed.errors.front().message.find(GetParam().inMessage), std::string::npos)
      << parsed.errors.front().message;
}

INSTANTIATE_TEST_SUITE_P(
    Files, SettingsErrorTest,
    testing::Values(
        ErrorCase{"syntax", "enabled = true\nhrInterval = = 30\n", {2}, ""},
        ErrorCase{"keyTwice", "enabled = true\n\nenabled = false\n", {3}, "enabled"},
        ErrorCase{"numberForBoolean", "\nenabled = 1\n", {2}, "enabled is an integer"},
        ErrorCase{"booleanForNumber", "hrInterval = true", {1}, "hrInterval is a boolean"},
        ErrorCase{"realForNumber", "timeout = 1.5", {1}, "timeout is a real number"},
        ErrorCase{"textForNumber", "timeout = \"15\"", {1}, "timeout is a text"},
        ErrorCase{"aboveRange", "timeout = 2147483648", {1}, "out of range"},
        ErrorCase{"belowRange", "timeout = -2147483649", {1}, "out of range"},
        ErrorCase{"severalAtOnce", "enabled = 0\nmode = 0\ntimeout = false", {1, 3}, "enabled"},
        ErrorCase{"appsIsNoTable", "apps = 3", {1}, "apps is an integer"},
        ErrorCase{"appIsNoTable", "[apps]\nChat = 9", {2}, "apps.\"Chat\" is an integer"},
        ErrorCase{"appKeyOfAWrongKind",
                  "[apps.\"a.b\"]\nicon = \"9\"",
                  {2},
                  "apps.\"a.b\".icon is a text"},
        ErrorCase{"otherAppsToo", "[apps.\"*\"]\npreview = 1", {2}, "apps.\"*\".preview"},
        ErrorCase{"identifierWithoutQuotes", "[apps.org.example]\nicon = 9", {1}, "in quotes"},
        ErrorCase{"percentOutOfRange", "[battery]\nalertBelow = 101", {2}, "0 to 100"},
        ErrorCase{"actionUnknown", "[button]\nonce = \"jump\"", {2}, "button.once has to be"},
        ErrorCase{"actionWithoutProgram", "[button]\ntwice = []", {2}, "names no program"},
        ErrorCase{"argumentIsNoText", "[button]\ntwice = [\"ls\", 1]", {2}, "an integer"},
        ErrorCase{"notUtf8", "# \xff\n", {1}, ""}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(SettingsTest, AnUnknownKeyIsOnlyWarnedAbout) {
  const ParsedSettings parsed =
      parseSettings("hrIntervall = 3\nenabled = false\n[apps.Chat]\nicons = 9\n");
  EXPECT_TRUE(parsed.errors.empty());
  ASSERT_EQ(parsed.warnings.size(), 2U);
  EXPECT_EQ(parsed.warnings[0].line, 1U);
  EXPECT_NE(parsed.warnings[0].message.find("hrIntervall"), std::string::npos);
  EXPECT_EQ(parsed.warnings[1].line, 4U);
  EXPECT_EQ(parsed.settings.globals, (Dictionary{{"enabled", false}}));
}

struct ChangeCase {
  std::string name;
  std::string before;
  std::string after;
  std::vector<std::string> suffixes;  ///< of the common name
};

class PreferenceChangesTest : public testing::TestWithParam<ChangeCase> {};

TEST_P(PreferenceChangesTest, NamesWhatToPost) {
  const std::vector<std::string> seen = {"Mail"};
  std::vector<std::string> expected;
  for (const std::string& suffix : GetParam().suffixes) {
    expected.push_back("org.corvale.wrixel2prefs.preferencechanged" + suffix);
  }
  const auto changes =
      preferenceChanges(prefsOf(GetParam().before, seen), prefsOf(GetParam().after, seen));
  EXPECT_EQ(std::vector<std::string>(changes.begin(), changes.end()), expected);
}

constexpr const char* kAll = R"(
    enabled = false
    donotdisturb = false
    hrInterval = 5
    continuousHr = true
    stopwatchSwitch = true
    endSteps = 20
  )";

INSTANTIATE_TEST_SUITE_P(
    Edits, PreferenceChangesTest,
    testing::Values(
        ChangeCase{"nothing", kAll, kAll, {}},
        ChangeCase{"everythingInOrder",
                   "",
                   kAll,
                   {"/move", "", "/hkInterval", "/continuous", "/stopwatchChanged", "/hk"}},
        ChangeCase{"removalCounts",
                   kAll,
                   "",
                   {"/move", "", "/hkInterval", "/continuous", "/stopwatchChanged", "/hk"}},
        ChangeCase{"moveEnabled", "", "moveEnabled = true", {"/move"}},
        ChangeCase{"onlyWeekdays", "", "onlyWeekdays = false", {"/move"}},
        ChangeCase{"sensitivity", "", "sensitivity = 1", {"/move"}},
        ChangeCase{"stepRepeat", "", "stepRepeat = 1", {"/move"}},
        ChangeCase{"remindPeriod", "", "remindPeriod = 1", {"/move"}},
        ChangeCase{"startSteps", "startSteps = 1", "startSteps = 2", {"/move"}},
        ChangeCase{"enabled", "enabled = true", "enabled = false", {""}},
        ChangeCase{"connectedMode", "", "connectedMode = 2", {""}},
        ChangeCase{"donotannoy", "", "donotannoy = true", {"/hk"}},
        ChangeCase{"alarmSwitch", "", "alarmSwitch = true", {"/hk"}},
        ChangeCase{"vibrateHrMeasure", "", "vibrateHrMeasure = true", {"/hk"}},
        ChangeCase{"onlyLocked", "", "onlyLocked = true", {"/hk"}},
        ChangeCase{"mode", "mode = 0", "mode = 1", {"/hk"}},
        ChangeCase{"timeout", "timeout = 15", "timeout = 16", {"/hk"}},
        ChangeCase{"anApp", "[apps.Chat]\nicon = 1", "[apps.Chat]\nicon = 2", {"/hk"}},
        ChangeCase{"anAppGone", "[apps.Chat]\nicon = 1", "", {"/hk"}},
        ChangeCase{"otherAppsThatWereSeen", "", "[apps.\"*\"]\nicon = 1", {"/hk"}},
        ChangeCase{"otherAppsThatWereNotSeen",
                   "[apps.Mail]\nicon = 1",
                   "[apps.Mail]\nicon = 1\n[apps.\"*\"]\nicon = 2",
                   {}},
        ChangeCase{"commentsOnly", "mode = 0", "# quiet per app\nmode = 0\n", {}}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(SettingsTest, AnIconThatTheBandDoesNotHaveIsWarnedAbout) {
  EXPECT_TRUE(parseSettings("[apps.Chat]\nicon = 30\n[apps.\"*\"]\nicon = 0\n").warnings.empty());
  const ParsedSettings parsed = parseSettings("[apps.Chat]\nicon = 31\n[apps.\"*\"]\nicon = -1\n");
  EXPECT_TRUE(parsed.errors.empty());
  EXPECT_EQ(parsed.warnings, (std::vector<SettingsProblem>{
                                 {2, "apps.\"Chat\".icon is 31; the band has icons from 1 to 30"},
                                 {4, "apps.\"*\".icon is -1; the band has icons from 1 to 30"}}));
}

}  // namespace
}  // namespace wrixel2::settings
