#include <csignal>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SessionTest.h"
#include "tests/platform/linux/FakeNotificationService.h"

namespace wrixel2::integration {
namespace {

const Bytes kTextIcon = {0x05, 0x01};
const Bytes kCallIcon = {0x03, 0x01};
const Bytes kAlarmIcon = {0xFA, 0x01, 0x0A};
const Bytes kPlainIcon = {0xFA, 0x01, 0x01};  ///< of icon 8

constexpr const char* kOtherKeysChanged = "org.corvale.wrixel2prefs.preferencechanged/hk";

/// An app's table. Icon 29 shows the text at once, and nothing but it: where a test is about
/// whether something is shown, the two seconds until another icon's text say nothing.
std::string appTable(const std::string& app, int icon = 29) {
  return "[apps.\"" + app + "\"]\nicon = " + std::to_string(icon) +
         "\nrepeat = 0\npattern = 4\npreview = true\n";
}

TEST_F(SessionTest, ANotificationReachesTheWrist) {
  writeSettings(appTable("notify-send", 8));
  startBoth();
  const auto view = startWithoutWaiting(WRIXEL2_BANDVIEW_PATH, {"--once"});
  waitUntil("the band view", [this] { return hasOwner("org.freedesktop.Notifications"); });
  const auto sender = start({"notify-send", "Anna", "See <b>you</b> at six &amp; more"});
  waitForExit(*sender, 0);
  waitForExit(*view, 0, std::chrono::seconds(30));
  EXPECT_EQ(view->errors(), "");
  for (const char* stage : {"message in", "first write", "icon", "vibration", "text"}) {
    EXPECT_NE(view->output().find(stage), std::string::npos) << view->output();
  }
  // The band's screen takes 18 bytes.
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Anna:See you at si"}));
  EXPECT_TRUE(hasShown(kPlainIcon));
  EXPECT_TRUE(hasShown(kTextIcon));

  for (const Program* program : {daemon_.get(), companion_.get()}) {
    EXPECT_FALSE(program->hasLogged("See you")) << "a message's text in the log";
    EXPECT_FALSE(program->hasLogged(kBandsKey)) << "the pairing key in the log";
  }
}

TEST_F(SessionTest, RulesDecideWhatIsShown) {
  writeSettings("donotannoy = true\ntimeout = 600\nonlyLocked = true\nconnectedMode = 1\n" +
                appTable("Chat") + appTable("Mail"));
  startBoth();
  waitForBand();
  // Unlocked, as the companion says at the start.
  bulletin("Chat", "Chat", "unlocked");
  post("com.apple.springboard.lockcomplete");
  post("com.apple.springboard.lockstate");
  bulletin("Chat", "Chat", "first");
  waitForText("Chat:first");
  bulletin("Chat", "Chat", "annoying");
  bulletin("Mail", "Mail", "another app");
  waitForText("Mail:another app");
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Chat:first", "Mail:another app"}));

  events_.clear();
  writeSettings("onlyLocked = true\nconnectedMode = 1\n" + appTable("Chat") + appTable("Mail"));
  waitForPosting(kOtherKeysChanged);
  bulletin("Chat", "Chat", "not annoying");
  post("com.apple.springboard.lockstate");
  bulletin("Chat", "Chat", "unlocked again");
  post("com.apple.springboard.lockcomplete");
  post("com.apple.springboard.lockstate");
  tell("DND", {{"DNDEnabled", true}});
  bulletin("Chat", "Chat", "disturbing");
  tell("phoneCall", {{"newCall", 1}, {"text", "Disturbing"}});
  tell("DND", {{"DNDEnabled", false}});
  bulletin("com.apple.mobilephone", "Call", "comes as a call");
  bulletin("Mail", "Mail", "the end");
  waitForText("Mail:the end");
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Chat:not annoying", "Mail:the end"}));
}

TEST_F(SessionTest, AnAlarmGoesThroughEverything) {
  writeSettings("onlyLocked = true\n");
  startBoth();
  tell("DND", {{"DNDEnabled", true}});
  bulletin("com.apple.mobiletimer", "Snoozing", "is no alarm");
  bulletin("com.apple.mobiletimer", "Alarm", "08:00");
  waitUntil("the alarm shows", [this] { return hasShown(kAlarmIcon); });
  tell("stopVibration");
  waitUntil("the band is stopped", [this] {
    for (const BandEvent& event : events_) {
      if (event.kind == "Vibrated" && event.arguments[2].intValue() == 0) {
        return true;
      }
    }
    return false;
  });
}

TEST_F(SessionTest, ACallRingsUntilItIsHungUp) {
  writeSettings("");
  startBoth();
  tell("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  waitForText("Anna");
  EXPECT_TRUE(hasShown(kCallIcon));
  events_.clear();
  tell("phoneCall", {{"callHanged", true}});
  waitUntil("the band is stopped", [this] { return has("Vibrated"); });
  EXPECT_TRUE(hasShown({0x00}));
  for (const BandEvent& event : events_) {
    if (event.kind == "Vibrated") {
      EXPECT_EQ(event.arguments, (Array{0, 0, 0}));
    }
  }
}

TEST_F(SessionTest, AnAppNeverSeenBeforeHasItsSettingsFromTheFirstNotificationOn) {
  writeSettings("connectedMode = 1\n" + appTable("*") + appTable("Quiet", 0));
  startBoth();
  waitForBand();
  notify("Quiet", "Quiet", "nothing");
  notify("New", "New", "one");
  waitForText("New:one");
  notify("Other", "Other", "two", {{"desktop-entry", "org.example.Newer"}});
  waitForText("Other:two");
  EXPECT_EQ(shownTexts().size(), 2U);
}

TEST_F(SessionTest, WhatIsSetBeforeTheDaemonStartsHoldsFromTheStart) {
  writeSettings("donotannoy = true\ntimeout = 600\n" + appTable("*"));
  startCompanion();
  startDaemon();
  waitForBand();
  notify("Chat", "Chat", "first");
  waitForText("Chat:first");
  notify("Chat", "Chat", "annoying");
  notify("Mail", "Mail", "the end");
  waitForText("Mail:the end");
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Chat:first", "Mail:the end"}));
}

/// The companion's name, held by the test.
class WithoutCompanionTest : public SessionTest {
 protected:
  /// A program that has the companion's name and never answers.
  void hang() {
    sd_bus* bus = nullptr;
    ASSERT_GE(sd_bus_new(&bus), 0);
    hanging_.reset(bus);
    sd_bus_set_bus_client(bus, 1);
    sd_bus_set_address(bus, busAddress_.c_str());
    ASSERT_GE(sd_bus_start(bus), 0);
    ASSERT_GE(sd_bus_request_name(bus, "org.corvale.wrixel2Ipc", 0), 0);
  }

  void callIsShownWithDefaults() {
    // There is nobody to say where the key is: the band is set to the one that the daemon has.
    setBandProperty("PairingKey", "s", kFallbackKey);
    tell("letUsStart");
    waitUntilServed();
    tell("phoneCall", {{"newCall", true}, {"text", "Anna"}});
    waitForText("Anna");
    EXPECT_TRUE(daemon_->hasLogged("No settings from the shell companion, using the defaults"));
  }

  struct Unref {
    void operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }
  };
  std::unique_ptr<sd_bus, Unref> hanging_;
};

TEST_F(WithoutCompanionTest, ADaemonWithoutACompanionServesWithDefaults) {
  startDaemon();
  callIsShownWithDefaults();
}

TEST_F(WithoutCompanionTest, ACompanionThatHangsHoldsNothingUpForLong) {
  hang();
  startDaemon();
  callIsShownWithDefaults();
}

TEST_F(WithoutCompanionTest, DoNotDisturbSetBeforeTheStartHolds) {
  startDaemon();
  setBandProperty("PairingKey", "s", kFallbackKey);
  tell("DND", {{"DNDEnabled", true}});
  tell("letUsStart");
  waitForBand();
  tell("phoneCall", {{"newCall", true}, {"text", "Disturbing"}});
  tell("DND", {{"DNDEnabled", false}});
  tell("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  waitForText("Anna");
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Anna"}));
}

TEST_F(SessionTest, ALinkThatDropsOnTheWayIsMadeAnew) {
  writeSettings(appTable("Chat", 8));
  startBoth();
  bulletin("Chat", "Chat", "dropped");
  waitUntil("the first write", [this] { return has("Written"); });
  callBand("Drop", "i", {6});
  waitForText("Chat:dropped");
  EXPECT_GE(daemon_->timesLogged("Peripheral successfully connected"), 2);

  // Between icon and text: that text is lost, and the next alert finds its way.
  events_.clear();
  bulletin("Chat", "Chat", "lost");
  waitUntil("the icon", [this] { return hasShown(kPlainIcon); });
  callBand("Drop", "i", {7});
  waitUntil("the daemon notices", [this] { return daemon_->hasLogged("DISCONNECT (7)"); });
  bulletin("Chat", "Chat", "found");
  waitForText("Chat:found");
}

class SlowSessionTest : public SessionTest {};

TEST_F(SlowSessionTest, AWrongPairingKeyIsTriedSixTimesAndARightOneThenWorks) {
  writePairingKey("00000000000000000000000000000000");
  writeSettings(appTable("Chat"));
  startBoth();
  bulletin("Chat", "Chat", "at last");
  waitUntil(
      "the sixth refusal",
      [this] { return daemon_->hasLogged("Authentication failed retry 5 in 5s!"); },
      std::chrono::seconds(45));
  EXPECT_EQ(daemon_->timesLogged("Authentication failed retry"), 6);
  EXPECT_EQ(bandLink(), "connected");
  EXPECT_EQ(shownTexts(), std::vector<std::string>{});
  writePairingKey(kBandsKey);
  callBand("Drop", "i", {6});
  waitForText("Chat:at last");
  EXPECT_EQ(daemon_->timesLogged("Authentication failed retry"), 6);
}

TEST_F(SlowSessionTest, TheBandViewSaysWhatNeverCame) {
  const auto view = startWithoutWaiting(WRIXEL2_BANDVIEW_PATH, {"--once"});
  waitUntil("the band view", [this] { return hasOwner("org.freedesktop.Notifications"); });
  const auto sender = start({"notify-send", "Anna", "Hi"});
  waitForExit(*sender, 0);
  waitForExit(*view, 1, std::chrono::seconds(40));
  EXPECT_EQ(view->output(), "message in        0 ms\n");
  EXPECT_TRUE(view->hasLogged("no first write (there is no virtual band")) << view->errors();
}

TEST_F(SessionTest, ASecondOfAKindSaysSoAndLeavesTheFirstInPlace) {
  writeSettings(appTable("Chat"));
  startBoth();
  waitForBand();
  const auto secondDaemon =
      startWithoutWaiting(WRIXEL2D_PATH, {"--band", "virtual", "--log", "stderr"});
  waitForExit(*secondDaemon, 1);
  EXPECT_TRUE(secondDaemon->hasLogged("wrixel2d: ")) << secondDaemon->errors();
  const auto secondCompanion = startWithoutWaiting(WRIXEL2_COMPANION_PATH, {"--log", "stderr"});
  waitForExit(*secondCompanion, 1);
  EXPECT_TRUE(secondCompanion->hasLogged("wrixel2-companion: ")) << secondCompanion->errors();
  notify("Chat", "Chat", "still served");
  waitForText("Chat:still served");
}

TEST_F(SessionTest, ACompanionOrDaemonThatDiesIsReplacedByItsNextStart) {
  writeSettings(appTable("*"));
  startBoth();
  companion_->signal(SIGKILL);
  waitForExit(*companion_, 128 + SIGKILL);
  writeSettings("connectedMode = 1\n" + appTable("*"));
  startCompanion();
  notify("Chat", "Chat", "new companion");
  waitForText("Chat:new companion");

  daemon_->signal(SIGKILL);
  waitForExit(*daemon_, 128 + SIGKILL);
  waitUntil("its name is free", [this] { return !hasOwner("org.corvale.wrixel2dIpc"); });
  startDaemon();
  waitUntilServed();
  notify("Chat", "Chat", "new daemon");
  waitForText("Chat:new daemon");
}

TEST_F(SessionTest, BadMessagesAreRefusedAndTheNextGoodOneWorks) {
  writeSettings(appTable("Chat"));
  startBoth();
  struct {
    const char* message;
    const char* signature;
    Array arguments;
    const char* error;
  } const refused[] = {
      {"noSuchMessage", "a{sv}", {Dictionary{}}, "org.freedesktop.DBus.Error.UnknownMethod"},
      {"bulletinRequest", "s", {"text"}, "org.freedesktop.DBus.Error.InvalidArgs"},
      {"bulletinRequest", "", {}, "org.freedesktop.DBus.Error.InvalidArgs"},
      {"DND", "a{sv}s", {Dictionary{}, "more"}, "org.freedesktop.DBus.Error.InvalidArgs"},
  };
  for (const auto& bad : refused) {
    const auto call = bus_->newMethodCall(
        {"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc", "org.corvale.wrixel2dIpc"},
        bad.message, bad.signature, bad.arguments);
    ASSERT_TRUE(call);
    const auto reply = bus_->call(*call);
    ASSERT_FALSE(reply) << bad.message << " " << bad.signature;
    EXPECT_NE(reply.error().localizedDescription.find(bad.error), std::string::npos)
        << reply.error().localizedDescription;
  }
  // These reach their handlers, which make the best of them.
  tell("bulletinRequest");
  tell("bulletinRequest", {{"sectionID", 7}, {"title", Array{1, 2}}, {"message", Dictionary{}}});
  tell("bulletinRequest", {{"sectionID", "Chat"}, {"title", Bytes{1}}, {"message", 1.5}});
  tell("phoneCall", {{"text", "neither new nor hung up"}});
  tell("phoneCall", {{"newCall", Dictionary{}}, {"text", Array{}}});
  tell("DND", {{"DNDEnabled", Array{}}});
  tell("appChanged", {{"appInfo", 3}});
  bulletin("Chat", "Chat", "a good one");
  waitForText("Chat:a good one");
}

TEST_F(SessionTest, ABrokenSettingsFileLeavesTheLastGoodOneInForce) {
  writeSettings("connectedMode = 1\n" + appTable("Chat"));
  startBoth();
  bulletin("Chat", "Chat", "one");
  waitForText("Chat:one");
  const std::string path = (directory_ / "config/wrixel2/settings.toml").string();

  writeSettings("connectedMode = 1\nenabled = \"no\"\n");
  waitUntil("the error is reported", [&] { return companion_->hasLogged(path + ":2: enabled"); });
  writeSettings("[apps");
  waitUntil("the error is reported", [&] { return companion_->hasLogged(path + ":1: "); });
  bulletin("Chat", "Chat", "two");
  waitForText("Chat:two");

  writeSettings("connectedMode = 1\n" + appTable("Mail"));
  waitForPosting(kOtherKeysChanged);
  bulletin("Mail", "Mail", "three");
  waitForText("Mail:three");
}

TEST_F(SessionTest, TheOwnerIsToldOfImpossibleSettings) {
  writeSettings(appTable("*"));
  std::vector<std::pair<std::string, std::string>> shown;
  const auto served = platform::linux::serveNotifications(*bus_, [&shown](const Array& arguments) {
    shown.emplace_back(*arguments[3].text(), *arguments[4].text());
    return 1;
  });
  ASSERT_TRUE(served);
  startBoth();
  writeSettings("moveEnabled = true\nstartSteps = 5\nendSteps = 5\n" + appTable("*"));
  waitUntil("the alert", [&shown] { return !shown.empty(); });
  EXPECT_EQ(shown.front().first, "Invalid Move Reminder configuration!");
  EXPECT_EQ(shown.front().second, "'Remind From' and 'Remind Till' shouldn't be the same.");

  // What the companion itself notifies does not go to the band.
  waitForBand();
  notify("Chat", "Chat", "the end");
  waitForText("Chat:the end");
  EXPECT_EQ(shownTexts(), (std::vector<std::string>{"Chat:the end"}));
}

TEST_F(SessionTest, EndsCleanlyWhenToldAndWithAnErrorWhenTheBusIsGone) {
  writeSettings("");
  startBoth();
  for (const int number : {SIGTERM, SIGINT}) {
    for (Program* program : {daemon_.get(), companion_.get()}) {
      program->signal(number);
      waitForExit(*program, 0);
    }
    waitUntil("the names are free", [this] {
      return !hasOwner("org.corvale.wrixel2dIpc") && !hasOwner("org.corvale.wrixel2Ipc");
    });
    startBoth();
  }
  stopBus();
  waitForExit(*daemon_, 1);
  waitForExit(*companion_, 1);
  EXPECT_TRUE(daemon_->hasLogged("ERROR")) << daemon_->errors();
  EXPECT_TRUE(companion_->hasLogged("ERROR")) << companion_->errors();
}

struct UsageCase {
  std::string name;
  std::string program;
  std::vector<std::string> options;
  int status;
  bool hasBus;
};

class UsageTest : public SessionTest, public testing::WithParamInterface<UsageCase> {};

TEST_P(UsageTest, HasItsExitStatusAndOneLine) {
  if (!GetParam().hasBus) {
    environment_["DBUS_SESSION_BUS_ADDRESS"] = "unix:path=/nonexistent";
  }
  const auto program = startWithoutWaiting(GetParam().program, GetParam().options);
  waitForExit(*program, GetParam().status);
  if (GetParam().status == 0) {
    EXPECT_FALSE(program->output().empty());
    EXPECT_TRUE(program->errors().empty()) << program->errors();
  } else {
    EXPECT_TRUE(program->output().empty()) << program->output();
    EXPECT_EQ(program->timesLogged("\n"), 1) << program->errors();
  }
}

std::vector<UsageCase> usageCases() {
  std::vector<UsageCase> cases;
  for (const auto& [name, path] :
       {std::pair("daemon", WRIXEL2D_PATH), std::pair("companion", WRIXEL2_COMPANION_PATH),
        std::pair("bandview", WRIXEL2_BANDVIEW_PATH)}) {
    const std::string program(name);
    const std::vector<std::string> plain =
        program == "daemon"     ? std::vector<std::string>{"--band", "virtual"}
        : program == "bandview" ? std::vector<std::string>{"--once"}
                                : std::vector<std::string>{};
    cases.push_back({program + "Help", path, {"--help"}, 0, false});
    cases.push_back({program + "Version", path, {"--version"}, 0, false});
    cases.push_back({program + "UnknownOption", path, {"--no-such-option"}, 2, true});
    cases.push_back({program + "StrayArgument", path, {"stray"}, 2, true});
    cases.push_back({program + "NoBus", path, plain, 1, false});
  }
  cases.push_back({"daemonUnknownBand", WRIXEL2D_PATH, {"--band", "other"}, 2, true});
  cases.push_back({"daemonUnknownLog", WRIXEL2D_PATH, {"--log", "paper"}, 2, true});
  cases.push_back({"companionUnknownLog", WRIXEL2_COMPANION_PATH, {"--log", "paper"}, 2, true});
  cases.push_back({"companionConfigInNoDirectory",
                   WRIXEL2_COMPANION_PATH,
                   {"--config", "/nonexistent/settings.toml"},
                   1,
                   true});
  cases.push_back({"bandviewWithoutTerminal", WRIXEL2_BANDVIEW_PATH, {}, 1, true});
  return cases;
}

INSTANTIATE_TEST_SUITE_P(Programs, UsageTest, testing::ValuesIn(usageCases()),
                         [](const auto& testCase) { return testCase.param.name; });

}  // namespace
}  // namespace wrixel2::integration
