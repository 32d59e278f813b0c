#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/Wrixel2d.h"
#include "tests/daemon/DaemonHarness.h"
#include "tests/daemon/Printers.h"

namespace wrixel2::daemon {

namespace {

using platform::Dictionary;
using platform::LogLevel;
using platform::Value;
using namespace std::chrono_literals;

using Lines = std::vector<std::string>;

constexpr const char* kLockComplete = "com.apple.springboard.lockcomplete";
constexpr const char* kLockState = "com.apple.springboard.lockstate";

class Wrixel2dTest : public DaemonHarness {
 protected:
  bool isConnectedMode() const { return manager->isConnectedMode(); }
  void setCompanionHanging(bool isHanging) {
    system.messageCenters.setHanging("org.corvale.wrixel2Ipc", isHanging);
  }
  auto warningsWith(std::string_view text) const {
    return std::ranges::count_if(system.log.lines(), [&](const auto& line) {
      return line.level == LogLevel::warning && line.message.find(text) != std::string::npos;
    });
  }
  std::size_t questions() const {
    return system.messageCenters.sentMessages("getPrefsDict").size();
  }
};

// Construction -----------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, TheInfoPlistIsPatchedFromVersionTenOn) {
  const struct {
    const char* version;
    bool isPatched;
  } kCases[] = {{"9.0", false}, {"9.3.5", false}, {"10.0", true}, {"10.3.1", true},
                {"11", true},   {"8", false},     {"", false},    {"new", false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.version);
    system.systemInfo.systemVersion = c.version;
    system.propertyLists.setDictionary(system.systemInfo.infoPlistPath, {});
    start();
    const auto plist = system.propertyLists.dictionary(system.systemInfo.infoPlistPath);
    EXPECT_NE(plist->empty(), c.isPatched);
    EXPECT_EQ(requests("Starting Wrixel2d on iOS version: " + std::string(c.version)), 1U);
    EXPECT_TRUE(system.serviceManager.isReady());
  }
}

TEST_F(Wrixel2dTest, OneControllerServesTheCenterForAsLongAsItIsHeld) {
  system.messageCenters.setTaken("org.corvale.wrixel2dIpc", true);
  const auto refused = Wrixel2d::create(platform(), bandFactory());
  ASSERT_FALSE(refused);
  EXPECT_FALSE(refused.error().localizedDescription.empty());
  EXPECT_FALSE(system.serviceManager.isReady());
  EXPECT_TRUE(system.log.lines().empty());

  system.messageCenters.setTaken("org.corvale.wrixel2dIpc", false);
  {
    const auto first = Wrixel2d::sharedManager(platform(), bandFactory());
    const auto second = Wrixel2d::sharedManager(platform(), nullptr);
    ASSERT_TRUE(first && second);
    EXPECT_EQ(*first, *second);
  }
  EXPECT_FALSE(system.messageCenters.isServed("org.corvale.wrixel2dIpc"));
}

// Start and stop ---------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, StartsByTheCompanionTheFirstUnlockOrThePreferences) {
  const struct {
    const char* what;
    std::function<void()> trigger;
    bool starts;
  } kCases[] = {
      {"letUsStart", [this] { send("letUsStart"); }, true},
      {"preferences", [this] { postPreference(); }, true},
      {"unlock", [this] { post(kLockState); }, true},
      {"health settings", [this] { postPreference("/hk"); }, false},
  };
  start();
  run();
  EXPECT_EQ(system.runLoop.pendingTimers(), 0U);
  EXPECT_TRUE(system.messageCenters.sentMessages().empty());
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    start();
    c.trigger();
    run();
    EXPECT_EQ(wrixel2d->state().started, c.starts);
    EXPECT_EQ(bandsMade, c.starts ? 1 : 0);
  }
}

TEST_F(Wrixel2dTest, StopsAndStartsAgainWithTheSameBandObject) {
  startService({{"hrInterval", 30}, {"continuousHr", true}, {"moveEnabled", true}});
  system.runLoop.runFor(1s);
  const auto* const band = wrixel2d->state().band.get();
  EXPECT_EQ(system.runLoop.persistentTimers().size(), 3U);
  postPreference("/measure");
  run();
  ASSERT_TRUE(manager->isHeartRateActive());

  set("connectedMode", 1);
  change("enabled", false, "");
  EXPECT_FALSE(wrixel2d->state().started);
  EXPECT_FALSE(manager->isHeartRateActive()) << "the band was asked for it";
  EXPECT_TRUE(system.runLoop.persistentTimers().empty());
  EXPECT_FALSE(isConnectedMode()) << "not touched when the service goes off";
  system.runLoop.runFor(10min);
  EXPECT_TRUE(system.runLoop.persistentTimers().empty());
  send("letUsStart");
  run();
  EXPECT_FALSE(wrixel2d->state().started);

  change("enabled", true, "");
  EXPECT_TRUE(wrixel2d->state().started);
  EXPECT_TRUE(isConnectedMode());
  EXPECT_EQ(wrixel2d->state().band.get(), band);
  EXPECT_EQ(bandsMade, 1);
}

TEST_F(Wrixel2dTest, TheUserIsToldOnceAtStartWhenTheAppIsMissing) {
  const std::string kWarning =
      "Wrixel2 warning|MiFit app not found. Please install it and log in. It's needed to fetch "
      "some MiBand2 config data. You don't have to use it, but it should be installed in order to "
      "use the tweak.";
  const struct {
    Dictionary appInfo;
    const char* line;
    bool warns;
  } kCases[] = {
      {{{"MiFitBasePath", "/MiFit"}}, "path: /MiFit", false},
      {{{"MiFitBasePath", ""}}, "path: ", true},
      {{}, "path: (null)", true},
      {{{"MiFitBasePath", 5}}, "path: (null)", true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.line);
    companion->appInfo = c.appInfo;
    start();
    forget();
    postPreference();
    postPreference();
    run();
    EXPECT_EQ(requests(c.line), 1U);
    EXPECT_EQ(userAlerts(), c.warns ? UserAlerts{kWarning} : UserAlerts{});
  }
}

TEST_F(Wrixel2dTest, WithoutACompanionTheDefaultsHoldAndALineSaysSo) {
  start();
  forget();
  companion.reset();
  send("letUsStart");
  postPreference("/hk");
  run();
  EXPECT_TRUE(wrixel2d->state().started) << "enabled by default";
  EXPECT_EQ(warningsWith("using the defaults"), 1);
  EXPECT_EQ(warningsWith("No app info from the shell companion"), 1);
  EXPECT_EQ(userAlerts().size(), 1U) << "told that the app is missing";
  system.runLoop.runFor(1h);
  EXPECT_EQ(questions(), 2U) << "nobody is asked again; who comes says so";
}

TEST_F(Wrixel2dTest, ConnectedModeFollowsTheSettingAndDoNotDisturb) {
  const struct {
    Value mode;
    bool quiet;   ///< expected with Do Not Disturb
    bool normal;  ///< expected without it
  } kCases[] = {{0, false, false}, {1, true, true},  {2, false, true},
                {3, true, true},   {-1, true, true}, {"2", false, true}};
  companion->settings = {{"connectedMode", 2}};
  start();
  setQuiet(true);
  send("letUsStart");
  run();
  EXPECT_FALSE(isConnectedMode()) << "Do Not Disturb of before the start counts";
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.mode.longValue());
    change("connectedMode", c.mode, "");
    setQuiet(true);
    EXPECT_EQ(isConnectedMode(), c.quiet);
    setQuiet(false);
    EXPECT_EQ(isConnectedMode(), c.normal);
  }
  for (const Dictionary& nothingOfUse :
       {Dictionary{}, Dictionary{{"DNDEnabled", platform::Bytes{1}}}}) {
    send("DND", {{"DNDEnabled", 1}});
    send("DND", nothingOfUse);
    run();
    EXPECT_FALSE(wrixel2d->state().dndActive);
  }
}

TEST_F(Wrixel2dTest, TellsLocksFromUnlocks) {
  const struct {
    std::vector<const char*> postings;
    bool locked;
    bool seen;
    bool started;
  } kCases[] = {
      {{}, true, false, false},
      {{kLockState}, false, false, true},
      {{kLockComplete}, true, true, false},
      {{kLockComplete, kLockState}, true, false, false},
      {{kLockComplete, kLockComplete, kLockState}, true, false, false},
      {{kLockComplete, kLockState, kLockState}, false, false, true},
      {{kLockState, kLockComplete}, true, true, true},
      {{kLockState, kLockComplete, kLockState}, true, false, true},
      {{kLockState, kLockComplete, kLockState, kLockState}, false, false, true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(testing::PrintToString(c.postings));
    start();
    for (const auto* posting : c.postings) {
      post(posting);
    }
    run();
    const auto& state = wrixel2d->state();
    EXPECT_EQ(state.deviceLocked, c.locked);
    EXPECT_EQ(state.lockCompleteSeen, c.seen);
    EXPECT_EQ(state.started, c.started);
  }
  forget();
  post(kLockState);
  run();
  EXPECT_TRUE(system.messageCenters.sentMessages("getPrefsDict").empty())
      << "once started, an unlock reads no settings";
}

// Settings ---------------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, APartialReloadReadsNothingElse) {
  startService();
  change("enabled", false, "/hk");
  EXPECT_FALSE(wrixel2d->state().settings.enabled);
  EXPECT_TRUE(wrixel2d->state().started) << "only read";
  change("enabled", true, "/hk");
  EXPECT_EQ(system.messageCenters.sentMessages().size(), 2U);

  companion->settings = {{"enabled", false},
                         {"timeout", 60},
                         {"sensitivity", 20},
                         {"endSteps", 18},
                         {"MBIcon-app", 9}};
  change("moveEnabled", true, "/move");
  const auto& settings = wrixel2d->state().settings;
  EXPECT_TRUE(settings.enabled);
  EXPECT_EQ(settings.timeout, 15U);
  EXPECT_TRUE(settings.move.moveEnabled);
  EXPECT_EQ(settings.move.sensitivity, 20U);
  EXPECT_EQ(settings.move.endSteps, 18U);
  send("appChanged", {{"appInfo", "app"}});
  run();
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, {}})) << "apps are looked up in the new snapshot";
}

TEST_F(Wrixel2dTest, AFaultyMoveWindowIsToldAndKept) {
  startService({{"moveEnabled", true}});
  const std::string kTitle = "Invalid Move Reminder configuration!|";
  change("endSteps", 8, "/move");
  EXPECT_EQ(userAlerts(),
            UserAlerts{kTitle + "'Remind From' and 'Remind Till' shouldn't be the same."});
  EXPECT_EQ(wrixel2d->state().settings.move.endSteps, 8U);
  const std::string kLine = "Invalid step configuration stepsFrom: 8, stepsTill: 8, stepsPeriod: 1";
  // Once by the check, once by the scheduler that refuses it.
  EXPECT_EQ(lines(LogLevel::error), (std::vector{kLine, kLine}));
  EXPECT_TRUE(system.runLoop.persistentTimers().empty());

  forget();
  change("endSteps", 9, "/move");
  EXPECT_EQ(userAlerts(),
            UserAlerts{kTitle + "'Remind Period' value exceeds Move Reminder time slot."});
  forget();
  change("endSteps", 16, "/move");
  EXPECT_TRUE(userAlerts().empty());
  EXPECT_EQ(system.runLoop.persistentTimers().size(), 1U);
}

TEST_F(Wrixel2dTest, BeforeTheFirstAnswerNothingStartsAndWhatArrivesWaits) {
  companion->settings = {{"MBIcon-app", 9}};
  start();
  setCompanionHanging(true);
  send("DND", {{"DNDEnabled", true}});
  send("DND", {{"DNDEnabled", false}});
  run();
  EXPECT_EQ(questions(), 1U) << "whatever is the first to come";
  postPreference("/hk");
  post(kLockState);
  send("bulletinRequest", {{"sectionID", "app"}});
  system.runLoop.runFor(10min);
  EXPECT_FALSE(wrixel2d->state().started);
  EXPECT_NE(property("Problem").text()->find("nothing starts"), std::string::npos);
  EXPECT_EQ(warningsWith("nothing starts without them"), 1);
  EXPECT_EQ(questions(), 7U) << "at 0, 3, 10, 42, 104, 226 and 528 seconds";
  EXPECT_EQ(lines(LogLevel::info).size(), 1U) << "that it starts";

  setCompanionHanging(false);
  run();
  EXPECT_TRUE(wrixel2d->state().started);
  EXPECT_EQ(wrixel2d->state().band->mode()->iconId(), 9U);
  EXPECT_EQ(property("Problem"), Value(""));
  system.runLoop.runFor(1h);
  EXPECT_EQ(questions(), 8U)
      << "the unlock comes after the announcement, and asks before the alert";

  // What is announced while it does not answer is one question more, and shortens no pause.
  forget();
  setCompanionHanging(true);
  for (int i = 0; i < 5; ++i) {
    postPreference("/hk");
    run();
  }
  system.runLoop.runFor(2s);
  for (int i = 0; i < 5; ++i) {
    postPreference("/hk");
    run();
  }
  EXPECT_EQ(questions(), 1U);
  system.runLoop.runFor(1s);
  EXPECT_EQ(questions(), 2U);
  setCompanionHanging(false);
  run();
  EXPECT_EQ(questions(), 2U);

  // Answered, it begins anew with the shortest pause.
  forget();
  setCompanionHanging(true);
  postPreference("/hk");
  system.runLoop.runFor(4s);
  EXPECT_EQ(questions(), 2U);
}

TEST_F(Wrixel2dTest, WithoutAnAnswerTheSettingsLastReadHoldAndChangesWaitForIt) {
  startService({{"MBIcon-app", 9}});
  setCompanionHanging(true);
  set("MBIcon-app", 5);
  change("continuousHr", true, "/continuous");
  setQuiet(true);
  setQuiet(false);
  bulletin({{"sectionID", "app"}});
  system.runLoop.runFor(1999ms);
  EXPECT_FALSE(newBandAlert()) << "the answer may still come";
  EXPECT_EQ(property("Problem"), Value(""));
  system.runLoop.runFor(1ms);
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, {}}));
  EXPECT_NE(property("Problem").text()->find("last read stay in force"), std::string::npos);
  bulletin({{"sectionID", "app"}});
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, {}})) << "at once";
  EXPECT_TRUE(userAlerts().empty());

  // Late, and of before the last change: what was announced after it is asked for once more.
  system.runLoop.runFor(10s);
  forget();
  for (int i = 0; i < 3; ++i) {
    postPreference("/hk");
  }
  setCompanionHanging(false);
  run();
  EXPECT_EQ(questions(), 1U);
  EXPECT_EQ(userAlerts().size(), 1U) << "that continuous measuring has begun";
  bulletin({{"sectionID", "app"}});
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 5, 0, {}}));

  // A companion that ends without having answered, and does not come back.
  setCompanionHanging(true);
  change("continuousHr", false, "/continuous");
  companion.reset();
  setCompanionHanging(false);
  system.runLoop.runFor(1s);
  EXPECT_EQ(userAlerts().size(), 2U) << "acted on by the settings in force";
  EXPECT_TRUE(wrixel2d->state().settings.continuousHr);
  EXPECT_EQ(property("Problem"), Value(""));
}

TEST_F(Wrixel2dTest, AFloodAsksNoMoreThanTwiceAndKeepsWhatWaitsBoundedAndInOrder) {
  startService({{"MBIcon-app", 9}, {"MBPreview-app", true}});
  setCompanionHanging(true);
  for (int i = 0; i < 10'000; ++i) {
    postPreference("/hk");
    postPreference("/move");
    send("bulletinRequest", {{"sectionID", "app"}, {"message", std::to_string(i)}});
  }
  setCompanionHanging(false);
  run();
  EXPECT_EQ(questions(), 2U);
  EXPECT_EQ(newBandAlert()->text, "9999");
  EXPECT_EQ(requests("#Forwaring: app"), 253U) << "and three announcements make 256";
  EXPECT_TRUE(system.log.contains(LogLevel::warning, " were dropped"));

  // What reaches band and disk does so once a second.
  forget();
  for (int i = 0; i < 10'000; ++i) {
    postPreference("/measure");
  }
  run();
  EXPECT_EQ(heartRequests(0), 1U);
  system.runLoop.runFor(10s);
  EXPECT_EQ(heartRequests(0), 2U);

  // Few, but large.
  forget();
  setCompanionHanging(true);
  postPreference("/hk");
  for (int i = 0; i < 64; ++i) {
    // Also where nobody looks.
    send("bulletinRequest",
         {{"sectionID", "app"},
          {"more", Dictionary{{"of it", platform::Array{std::string(100'000, 'x')}}}}});
  }
  setCompanionHanging(false);
  run();
  EXPECT_EQ(requests("#Forwaring: app"), 10U);
}

// Messages ---------------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, MessagesBeforeTheStartHaveNoEffect) {
  start();
  send("bulletinRequest", {{"sectionID", "com.apple.mobiletimer"}, {"title", "Alarm"}});
  send("bulletinRequest", {{"sectionID", "org.example.Chat"}});
  send("stopVibration");
  send("appChanged", {{"appInfo", "org.example.Chat"}});
  send("phoneCall", {{"newCall", 1}, {"text", "Anna"}});
  send("phoneCall", {{"callHanged", 1}});
  post("org.corvale.wrixel2.lockToCurrentBand");
  post("org.corvale.wrixel2.removeLock");
  post("org.corvale.wrixel2.syncClock");
  post("org.corvale.wrixel2.keyChanged");
  set("hrInterval", 30);
  for (const auto* suffix : {"/measure", "/hkInterval", "/continuous", "/stopwatchChanged"}) {
    postPreference(suffix);
  }
  run();
  EXPECT_EQ(bandsMade, 0);
  EXPECT_FALSE(wrixel2d->state().started);
}

TEST_F(Wrixel2dTest, ANotificationIsForwardedAsTheAppsSettingsSay) {
  startService({{"MBRepeat-org.example.Chat", 1},
                {"MBIcon-org.example.Chat", 9},
                {"MBPattern-org.example.Chat", 4},
                {"MBPreview-org.example.Chat", true}});
  const Dictionary kMessage{
      {"sectionID", "org.example.Chat"}, {"title", "Anna"}, {"message", "See you at six"}};
  bulletin(kMessage);
  EXPECT_EQ(lines(LogLevel::info), (Lines{"#Forwaring: org.example.Chat"}));
  EXPECT_EQ(newBandAlert(), (BandAlert{2, 9, 4, "Anna:See you at six"}));
  EXPECT_FALSE(system.log.contains(LogLevel::info, "See you")) << "texts are private";

  forget();
  bulletin({{"sectionID", "com.apple.mobiletimer"}, {"title", "Alarm"}});
  EXPECT_EQ(lines(LogLevel::info), (Lines{"Triggering an alarm in an enhanced mode ..."}));
  EXPECT_EQ(newBandAlert(), (BandAlert{20, 27, 8, {}}));

  // Without an icon of its own an app passes the rules, and the band stays as it is.
  forget();
  bulletin({{"sectionID", "org.example.Other"}, {"message", "text"}});
  EXPECT_EQ(lines(LogLevel::info), (Lines{"#Forwaring: org.example.Other"}));
  EXPECT_FALSE(newBandAlert());
}

TEST_F(Wrixel2dTest, WhatIsNotForwardedHasOneLineWithItsReason) {
  struct {
    Dictionary settings;
    const char* app;
    const char* reason;
  } const cases[] = {
      {{{"enabled", false}}, "app", "the service is switched off"},
      {{{"onlyLocked", true}}, "app", "the phone is not locked"},
      {{}, "com.apple.mobilephone", "calls are alerted as calls"},
      {{}, "com.apple.mobiletimer", "an alarm without a title"},
      {{{"donotannoy", true}}, "twice", "too soon after the last one"},
      {{{"MBIcon-quiet", 9}}, "quiet", "Do Not Disturb is on"},
  };
  startService();
  post(kLockState);
  for (const auto& c : cases) {
    companion->settings = c.settings;
    postPreference("/hk");
    setQuiet(c.settings.contains("MBIcon-quiet"));
    if (c.settings.contains("donotannoy")) {
      bulletin({{"sectionID", c.app}});
    }
    forget();
    bulletin({{"sectionID", c.app}});
    EXPECT_EQ(lines(LogLevel::info),
              (Lines{std::string("Wrixel2d: Not forwarding ") + c.app + ": " + c.reason}));
    EXPECT_FALSE(newBandAlert());
  }
}

TEST_F(Wrixel2dTest, EntriesOfTheWrongKindReadAsAbsent) {
  startService({{"MBIcon-app", 9}, {"MBPreview-app", true}});
  bulletin({{"sectionID", "app"}, {"title", 5}, {"message", platform::Array{}}, {"sender", true}});
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, ""}));
  EXPECT_EQ(lines(LogLevel::warning).size(), 3U);

  for (const auto& unusable :
       {Dictionary{}, Dictionary{{"sectionID", 7}}, Dictionary{{"message", "no one's"}}}) {
    forget();
    bulletin(unusable);
    EXPECT_TRUE(lines(LogLevel::info).empty());
    EXPECT_EQ(lines(LogLevel::warning).back(),
              "Wrixel2d: Dropping a bulletinRequest without sectionID");
  }
  send("appChanged");
  send("appChanged", {{"appInfo", 1.5}});
  run();
  EXPECT_FALSE(newBandAlert());
  EXPECT_EQ(system.log.count(LogLevel::warning, "Ignoring an appChanged without appInfo"), 2U);
}

TEST_F(Wrixel2dTest, TextsAndIdentifiersAreHeldToALength) {
  const std::string kLong(10'000, 'x');
  const std::string kApp(255, 'x');
  const std::string kText(4096, 'x');
  startService({{"MBIcon-" + kApp, 9}, {"MBPreview-" + kApp, true}});
  bulletin({{"sectionID", kLong}, {"title", kLong}, {"message", kLong}});
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, kText + ":" + kText}));
  send("phoneCall", {{"newCall", true}, {"text", kLong}});
  run();
  EXPECT_EQ(newBandAlert(), callAlert(kText));
  send("appChanged", {{"appInfo", kLong}});
  run();
  EXPECT_EQ(newBandAlert()->icon, 9U);
}

TEST_F(Wrixel2dTest, TheQuietTimeRunsFromTheLastForwardedNotification) {
  startService({{"donotannoy", true}, {"MBIcon-app", 9}});
  const auto isForwarded = [this](const char* sender) {
    bulletin({{"sectionID", "app"}, {"sender", sender}});
    return newBandAlert().has_value();
  };
  EXPECT_TRUE(isForwarded("Anna"));
  system.runLoop.runFor(10s);
  EXPECT_FALSE(isForwarded("Anna"));
  system.clock.setWallClock(system.clock.now() + 24h);
  EXPECT_FALSE(isForwarded("Anna")) << "setting the clock changes nothing";
  system.clock.setWallClock(system.clock.now() - 72h);
  system.runLoop.runFor(4999ms);
  EXPECT_FALSE(isForwarded("Anna"));
  system.runLoop.runFor(1ms);
  EXPECT_TRUE(isForwarded("Anna"));
  EXPECT_FALSE(isForwarded("Ben"));
  change("mode", 1, "/hk");
  EXPECT_TRUE(isForwarded("Ben")) << "Anna was the last one forwarded";
  EXPECT_TRUE(isForwarded("Anna"));
  EXPECT_FALSE(isForwarded("Anna"));

  // Nothing is remembered while the rule is off.
  change("donotannoy", false, "/hk");
  system.runLoop.runFor(10s);
  EXPECT_TRUE(isForwarded("Anna"));
  change("donotannoy", true, "/hk");
  system.runLoop.runFor(6s);
  EXPECT_TRUE(isForwarded("Anna")) << "16 s after the last one that was remembered";
}

TEST_F(Wrixel2dTest, CallsRingUnlessTheServiceOrTheOwnerIsQuiet) {
  const struct {
    const char* what;
    Dictionary settings;
    bool dnd;
    bool rings;
  } kCases[] = {
      {"as usual", {}, false, true},
      {"other rules", {{"onlyLocked", true}, {"donotannoy", true}, {"timeout", 99}}, false, true},
      {"Do Not Disturb", {}, true, false},
      {"Do Not Disturb not honoured", {{"donotdisturb", false}}, true, true},
      {"off", {{"enabled", false}}, false, false},
  };
  startService();
  post(kLockState);
  const auto phoneCall = [this](const Dictionary& userInfo) {
    send("phoneCall", userInfo);
    run();
    return newBandAlert();
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    companion->settings = c.settings;
    postPreference("/hk");
    setQuiet(c.dnd);
    EXPECT_EQ(phoneCall({{"newCall", false}, {"text", "Anna"}, {"callHanged", true}}),
              c.rings ? std::optional(BandAlert{2, 29, 8, "Anna"}) : std::nullopt)
        << "present is enough, whatever its value";
    EXPECT_EQ(manager->isNotificationActive(), c.rings);
    EXPECT_FALSE(phoneCall({{"callHanged", false}}));
    EXPECT_FALSE(manager->isNotificationActive());
    EXPECT_FALSE(phoneCall({{"text", "Anna"}}));
  }
  companion->settings = {};
  postPreference("/hk");
  EXPECT_EQ(phoneCall({{"newCall", 1}}), (BandAlert{2, 29, 8, {}}));
  // Deliberate: a call that ends while the owner is quiet is not stopped.
  setQuiet(true);
  phoneCall({{"callHanged", 1}});
  EXPECT_TRUE(manager->isNotificationActive());
  send("stopVibration");
  run();
  EXPECT_FALSE(manager->isNotificationActive()) << "unconditional";
}

TEST_F(Wrixel2dTest, TheEditedAppIsShownWhateverElseIsSet) {
  startService();
  companion->settings = {{"enabled", false},
                         {"MBIcon-app", 5},
                         {"MBRepeat-app", 1},
                         {"MBPattern-app", 2},
                         {"MBPreview-app", true}};
  setQuiet(true);
  const auto edited = [this] {
    send("appChanged", {{"appInfo", "app"}});
    run();
    return newBandAlert();
  };
  EXPECT_FALSE(edited()) << "settings are not read again for it";
  postPreference("/hk");
  EXPECT_EQ(edited(), (BandAlert{2, 5, 2, "Sender:SomeText"}));
  change("MBPreview-app", false, "/hk");
  EXPECT_EQ(edited(), (BandAlert{2, 5, 2, {}}));
}

// Status -----------------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, ShowsItsStatusAndAnnouncesEachChangeOnce) {
  companion->settings = {{"hrInterval", 30}};
  start();
  EXPECT_EQ(system.objectExporter.interfaceAtPath("/org/corvale/wrixel2dIpc")->name,
            "org.corvale.wrixel2d.Status");
  const std::pair<const char*, Value> kAtFirst[] = {
      {"State", "off"}, {"Band", ""}, {"Initialized", false}, {"LockedTo", ""},
      {"Battery", 0},   {"Steps", 0}, {"NextMeasurement", 0}, {"NextStepCheck", 0}};
  for (const auto& [name, value] : kAtFirst) {
    EXPECT_EQ(property(name), value) << name;
  }
  ASSERT_EQ(system.serviceManager.statuses().size(), 1U);
  EXPECT_NE(system.serviceManager.statuses().front().find("companion"), std::string::npos);

  system.fileManager.addFile(system.systemInfo.lockFilePath, "c8:0f:10:aa:bb:0c");
  system.objectExporter.clearRecords();
  send("letUsStart");
  system.runLoop.runFor(1s);
  EXPECT_EQ(property("State"), Value("idle"));
  EXPECT_EQ(property("LockedTo"), Value("c8:0f:10:aa:bb:0c"));
  const auto due = std::chrono::floor<std::chrono::seconds>(system.clock.now() + 30min);
  EXPECT_EQ(property("NextMeasurement"), Value(due.time_since_epoch().count()));
  Lines changes;
  for (const auto& change : system.objectExporter.propertyChanges()) {
    changes.push_back(change.name);
  }
  EXPECT_EQ(changes, (Lines{"Problem", "State", "LockedTo", "NextMeasurement"}));
  EXPECT_EQ(system.serviceManager.statuses().back(), "idle");
}

TEST_F(Wrixel2dTest, GoesOnWithoutAStatusOnTheBus) {
  const auto other = system.objectExporter.exportObject("", "/org/corvale/wrixel2dIpc", {});
  ASSERT_TRUE(other);
  start();
  ASSERT_EQ(lines(LogLevel::warning).size(), 1U);
  EXPECT_TRUE(lines(LogLevel::warning)[0].starts_with("StatusObject: No status on the bus: "));
  send("letUsStart");
  run();
  EXPECT_EQ(system.serviceManager.statuses().back(), "idle");
}

}  // namespace
}  // namespace wrixel2::daemon
