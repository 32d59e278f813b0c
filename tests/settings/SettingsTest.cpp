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
  EXPECT_EQ(prefsOf("enabled = true\nhrInterval = 30\nonlyLocked = false\ntimeout = -1\n"
                    "[apps.\"org.example.Chat\"]\nicon = 9\npattern = 4\npreview = true\n"),
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
  const std::string text = "[apps.\"*\"]\nicon = 2\n[apps.Chat]\nicon = 9\n";
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

TEST(SettingsTest, AnErrorIsReportedWithItsLine) {
  const struct {
    std::string text;
    std::uint32_t line;
    const char* inMessage;
  } kCases[] = {
      {"enabled = true\nhrInterval = = 30\n", 2, ""},
      {"enabled = true\n\nenabled = false\n", 3, "enabled"},
      {"# \xff\n", 1, ""},
      {std::string("# \0", 3), 1, ""},
      {"enabled = true\na = [[[[", 2, ""},
      {"\nenabled = 1\n", 2, "enabled is an integer"},
      {"hrInterval = true", 1, "hrInterval is a boolean"},
      {"timeout = 1.5", 1, "timeout is a real number"},
      {"timeout = \"15\"", 1, "timeout is a text"},
      {"timeout = 2026-11-23", 1, "timeout is a date"},
      {"timeout = {}", 1, "timeout is a table"},
      {"timeout = 2147483648", 1, "out of range"},
      {"timeout = -2147483649", 1, "out of range"},
      {"apps = 3", 1, "apps is an integer"},
      {"[apps]\nChat = 9", 2, "apps.\"Chat\" is an integer"},
      {"[apps.\"a.b\"]\nicon = \"9\"", 2, "apps.\"a.b\".icon is a text"},
      {"[apps.\"*\"]\npreview = 1", 2, "apps.\"*\".preview"},
      {"[apps.org.example]\nicon = 9", 1, "in quotes"},
      {"battery = 3", 1, "battery is an integer"},
      {"[battery]\nalertBelow = 101", 2, "0 to 100"},
      {"[doNotDisturb]\nphoshProfiles = \"quiet\"", 2, "doNotDisturb.phoshProfiles is a text"},
      {"[button]\nonce = \"jump\"", 2, "button.once has to be"},
      {"[button]\ntwice = []", 2, "names no program"},
      {"[button]\ntwice = [\"ls\", 1]", 2, "an integer"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.text);
    const ParsedSettings parsed = parseSettings(c.text);
    ASSERT_EQ(parsed.errors.size(), 1U);
    EXPECT_EQ(parsed.errors[0].line, c.line);
    EXPECT_NE(parsed.errors[0].message.find(c.inMessage), std::string::npos)
        << parsed.errors[0].message;
  }
  const ParsedSettings several = parseSettings("enabled = 0\nmode = 0\ntimeout = false");
  ASSERT_EQ(several.errors.size(), 2U);
  EXPECT_EQ(several.errors[1].line, 3U);
}

TEST(SettingsTest, AnUnknownKeyIsOnlyWarnedAbout) {
  const ParsedSettings parsed = parseSettings(
      "hrIntervall = 3\nenabled = false\n[apps.Chat]\nicons = 9\n"
      "[battery]\nalert = 1\n[doNotDisturb]\nprofiles = []\n[button]\nfourTimes = []\n");
  EXPECT_TRUE(parsed.errors.empty());
  std::string warnings;
  for (const SettingsProblem& warning : parsed.warnings) {
    warnings += std::to_string(warning.line) + ": " + warning.message + "\n";
  }
  EXPECT_EQ(warnings,
            "1: unknown key \"hrIntervall\"\n4: unknown key apps.\"Chat\".icons\n"
            "6: unknown key battery.alert\n8: unknown key doNotDisturb.profiles\n"
            "10: unknown key button.fourTimes\n");
  EXPECT_EQ(parsed.settings.globals, (Dictionary{{"enabled", false}}));
}

TEST(SettingsTest, AChangeNamesWhatToPost) {
  const std::string kAll =
      "enabled = false\ndonotdisturb = false\nhrInterval = 5\ncontinuousHr = true\n"
      "stopwatchSwitch = true\nendSteps = 20\n";
  const std::string kEverything = "/move, , /hkInterval, /continuous, /stopwatchChanged, /hk, ";
  const struct {
    std::string before;
    std::string after;
    std::string suffixes;  ///< of the common name
  } kCases[] = {
      {kAll, kAll, ""},
      {"", kAll, kEverything},
      {kAll, "", kEverything},
      {"", "moveEnabled = true", "/move, "},
      {"", "onlyWeekdays = false", "/move, "},
      {"", "sensitivity = 1", "/move, "},
      {"", "stepRepeat = 1", "/move, "},
      {"", "remindPeriod = 1", "/move, "},
      {"startSteps = 1", "startSteps = 2", "/move, "},
      {"enabled = true", "enabled = false", ", "},
      {"", "connectedMode = 2", ", "},
      {"", "donotannoy = true", "/hk, "},
      {"", "alarmSwitch = true", "/hk, "},
      {"", "vibrateHrMeasure = true", "/hk, "},
      {"", "onlyLocked = true", "/hk, "},
      {"mode = 0", "mode = 1", "/hk, "},
      {"timeout = 15", "timeout = 16", "/hk, "},
      {"[apps.Chat]\nicon = 1", "[apps.Chat]\nicon = 2", "/hk, "},
      {"[apps.Chat]\nicon = 1", "", "/hk, "},
      {"", "[apps.\"*\"]\nicon = 1", "/hk, "},
      // Nobody but Mail was seen.
      {"[apps.Mail]\nicon = 1", "[apps.Mail]\nicon = 1\n[apps.\"*\"]\nicon = 2", ""},
      {"mode = 0", "# quiet per app\nmode = 0\n", ""},
  };
  const std::string kCommonName = "org.corvale.wrixel2prefs.preferencechanged";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.before + " -> " + c.after);
    std::string suffixes;
    for (const auto& change :
         preferenceChanges(prefsOf(c.before, {"Mail"}), prefsOf(c.after, {"Mail"}))) {
      EXPECT_TRUE(change.starts_with(kCommonName)) << change;
      suffixes += std::string(change.substr(kCommonName.size())) + ", ";
    }
    EXPECT_EQ(suffixes, c.suffixes);
  }
}

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
