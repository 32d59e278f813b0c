#include <cerrno>
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

// Construction -----------------------------------------------------------------------------------

/// Writes down, in one list, what a controller registers and logs while it is made.
class RegistrationRecorder final : public platform::MessageCenters,
                                   public platform::DarwinNotifyCenter,
                                   public platform::DistributedNotificationCenter,
                                   public platform::Log {
 public:
  std::unique_ptr<platform::MessageCenter> centerNamed(std::string_view name) override {
    events.push_back("center " + std::string(name));
    return std::make_unique<Center>(events);
  }
  std::unique_ptr<platform::Observation> addObserver(
      std::string_view name, platform::SuspensionBehavior behavior,
      platform::DarwinNotifyCenter::Callback) override {
    events.push_back(
        std::string("darwin ") +
        (behavior == platform::SuspensionBehavior::coalesce ? "coalesce " : "immediately ") +
        std::string(name));
    return std::make_unique<platform::Observation>();
  }
  std::unique_ptr<platform::Observation> addObserver(
      std::string_view name, platform::DistributedNotificationCenter::Callback) override {
    events.push_back("distributed " + std::string(name));
    return std::make_unique<platform::Observation>();
  }
  void post(std::string_view) override {}
  void post(const platform::Notification&) override {}
  void write(LogLevel level, std::string_view module, unsigned, std::string_view message) override {
    events.push_back(std::string(platform::levelWord(level)) + " " + std::string(module) + " " +
                     std::string(message));
  }
  void writePlain(std::string_view) override {}
  bool showsPrivate() const override { return false; }

  std::vector<std::string> events;

 private:
  class Center final : public platform::MessageCenter {
   public:
    explicit Center(std::vector<std::string>& events) : events_(events) {}
    platform::ErrorOrNone runServer() override {
      events_.push_back("serve");
      return {};
    }
    void registerForMessageName(std::string_view name, Handler) override {
      events_.push_back("message " + std::string(name));
    }
    void registerForMessageNameWithReply(std::string_view, ReplyingHandler) override {}
    void sendMessageName(std::string_view, const Dictionary&) override {}
    platform::Result<std::unique_ptr<platform::PendingAnswer>> sendMessageNameForAnswer(
        std::string_view, const Dictionary&, AnswerHandler) override {
      return platform::Error{};
    }
    platform::Result<Dictionary> sendMessageAndReceiveReplyName(std::string_view,
                                                                const Dictionary&) override {
      return Dictionary{};
    }

   private:
    std::vector<std::string>& events_;
  };
};

TEST(Wrixel2dConstructionTest, RegistersEverythingInItsOrder) {
  const std::vector<std::string> kBeforePatch{
      "center org.corvale.wrixel2Ipc",
      "center org.corvale.wrixel2dIpc",
      "serve",
      "message bulletinRequest",
      "message stopVibration",
      "message DND",
      "message appChanged",
      "message phoneCall",
      "message letUsStart",
  };
  const std::vector<std::string> kAfterPatch{
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/hk",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/measure",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/hkInterval",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/move",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/continuous",
      "darwin coalesce org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged",
      "darwin immediately com.apple.springboard.lockcomplete",
      "darwin immediately com.apple.springboard.lockstate",
      "darwin immediately org.corvale.wrixel2.lockToCurrentBand",
      "darwin immediately org.corvale.wrixel2.removeLock",
      "distributed org.corvale.wrixel2.measure",
      "distributed org.corvale.wrixel2.steps",
      "distributed org.corvale.wrixel2.stopwatch",
      "darwin immediately org.corvale.wrixel2.syncClock",
      "darwin immediately org.corvale.wrixel2.keyChanged",
  };
  const struct {
    const char* version;
    bool isPatched;
  } kCases[] = {{"9.0", false}, {"9.3.5", false}, {"10.0", true}, {"10.3.1", true},
                {"11", true},   {"8", false},     {"", false},    {"new", false}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.version);
    platform::simulated::SimulatedPlatform system;
    system.systemInfo.systemVersion = c.version;
    system.propertyLists.setDictionary(system.systemInfo.infoPlistPath, {});
    RegistrationRecorder recorder;
    const auto& p = system.handle();
    const platform::Platform recorded{
        p.runLoop,       p.clock,        p.localTimeZone,  recorder,         recorder,
        recorder,        recorder,       p.objectExporter, p.bluetoothRadio, p.healthStore,
        p.propertyLists, p.userDefaults, p.fileManager,    p.systemInfo,     p.serviceManager};
    const auto made = Wrixel2d::create(recorded, [] { return nullptr; });
    ASSERT_TRUE(made);

    auto expected = kBeforePatch;
    expected.push_back("INFO main Starting Wrixel2d on iOS version: " + std::string(c.version));
    if (c.isPatched) {
      expected.push_back("INFO main Info.plist successfully backed up");
      expected.push_back("INFO main Health keys added to: " + system.systemInfo.infoPlistPath);
    }
    expected.insert(expected.end(), kAfterPatch.begin(), kAfterPatch.end());
    EXPECT_EQ(recorder.events, expected);
    EXPECT_TRUE(system.serviceManager.isReady());
  }
}

class Wrixel2dTest : public DaemonHarness {
 protected:
  void bulletin(const Dictionary& userInfo) {
    send("bulletinRequest", userInfo);
    run();
  }
  bool isConnectedMode() const { return manager->isConnectedMode(); }
};

TEST_F(Wrixel2dTest, StartsLockedAndLeavesTheBandAlone) {
  start();
  run();
  const auto& state = wrixel2d->state();
  EXPECT_FALSE(state.started);
  EXPECT_FALSE(state.dndActive);
  EXPECT_TRUE(state.deviceLocked);
  EXPECT_FALSE(state.lockCompleteSeen);
  EXPECT_EQ(bandsMade, 0);
  EXPECT_TRUE(system.messageCenters.sentMessages().empty());
  EXPECT_EQ(system.runLoop.pendingTimers(), 0U);
}

TEST_F(Wrixel2dTest, CannotBeMadeWhileAnotherProgramServesTheCenter) {
  system.messageCenters.setTaken("org.corvale.wrixel2dIpc", true);
  const auto made = Wrixel2d::create(platform(), bandFactory());
  ASSERT_FALSE(made);
  EXPECT_FALSE(made.error().localizedDescription.empty());
  EXPECT_FALSE(system.serviceManager.isReady());
  EXPECT_TRUE(system.log.lines().empty());
}

TEST_F(Wrixel2dTest, TheSharedControllerIsMadeOnceForAsLongAsItIsHeld) {
  {
    const auto first = Wrixel2d::sharedManager(platform(), bandFactory());
    const auto second = Wrixel2d::sharedManager(platform(), nullptr);
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
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
      {"unlock", [this] { post("com.apple.springboard.lockstate"); }, true},
      {"health settings", [this] { postPreference("/hk"); }, false},
      {"lock",
       [this] {
         post("com.apple.springboard.lockcomplete");
         post("com.apple.springboard.lockstate");
       },
       false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    wrixel2d.reset();
    bandsMade = 0;
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
  EXPECT_EQ(system.runLoop.persistentTimers("com.corvalt.wrixel2").size(), 1U);
  EXPECT_EQ(system.runLoop.persistentTimers("com.corvale.wrixel2").size(), 1U);
  EXPECT_EQ(system.runLoop.persistentTimers("com.corvale.wrixel2/step").size(), 1U);

  set("connectedMode", 1);
  change("enabled", false, "");
  EXPECT_FALSE(wrixel2d->state().started);
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

TEST_F(Wrixel2dTest, StoppingGivesUpWhatTheBandWasAskedFor) {
  startService();
  postPreference("/measure");
  run();
  ASSERT_TRUE(manager->isHeartRateActive());
  change("enabled", false, "");
  EXPECT_FALSE(manager->isHeartRateActive());
}

TEST_F(Wrixel2dTest, TheUserIsToldOnceAtStartWhenTheAppIsMissing) {
  const std::string kWarning =
      "Wrixel2 warning|MiFit app not found. Please install it and log in. It's needed to fetch "
      "some MiBand2 config data. You don't have to use it, but it should be installed in order to "
      "use the tweak.";
  const struct {
    const char* what;
    Dictionary appInfo;
    const char* line;
    bool warns;
  } kCases[] = {
      {"there", {{"MiFitBasePath", "/MiFit"}}, "path: /MiFit", false},
      {"empty", {{"MiFitBasePath", ""}}, "path: ", true},
      {"missing", {}, "path: (null)", true},
      {"no text", {{"MiFitBasePath", 5}}, "path: (null)", true},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    wrixel2d.reset();
    forget();
    companion->appInfo = c.appInfo;
    start();
    postPreference();
    postPreference();
    run();
    EXPECT_EQ(requests(c.line), 1U);
    EXPECT_EQ(userAlerts(), c.warns ? UserAlerts{kWarning} : UserAlerts{});
  }
}

TEST_F(Wrixel2dTest, WithoutACompanionTheDefaultsHoldAndALineSaysSo) {
  const struct {
    const char* what;
    std::function<void()> prepare;
    std::chrono::seconds waited;
  } kCases[] = {
      {"hanging", [this] { system.messageCenters.setHanging("org.corvale.wrixel2Ipc", true); }, 4s},
      {"absent",
       [this] {
         system.messageCenters.setHanging("org.corvale.wrixel2Ipc", false);
         companion.reset();
       },
       0s},
  };
  companion->settings = {{"onlyLocked", true}};
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    wrixel2d.reset();
    forget();
    start();
    c.prepare();
    const auto before = system.clock.monotonicNow();
    send("letUsStart");
    run();
    EXPECT_EQ(system.clock.monotonicNow() - before, c.waited) << "two requests of two seconds";
    EXPECT_TRUE(wrixel2d->state().started) << "enabled by default";
    EXPECT_FALSE(wrixel2d->state().settings.onlyLocked);
    const auto warnings = lines(LogLevel::warning);
    ASSERT_EQ(warnings.size(), 2U);
    EXPECT_NE(warnings[0].find("No settings from the shell companion"), std::string::npos);
    EXPECT_NE(warnings[1].find("No app info from the shell companion"), std::string::npos);
    EXPECT_EQ(userAlerts().size(), 1U) << "told that the app is missing";
  }
}

TEST_F(Wrixel2dTest, ConnectedModeFollowsTheSettingAndDoNotDisturb) {
  const struct {
    Value mode;
    bool quiet;   ///< expected with Do Not Disturb
    bool normal;  ///< expected without it
  } kCases[] = {{0, false, false}, {1, true, true},  {2, false, true},
                {3, true, true},   {-1, true, true}, {"2", false, true}};
  startService();
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.mode.longValue());
    change("connectedMode", c.mode, "");
    EXPECT_EQ(isConnectedMode(), c.normal);
    send("DND", {{"DNDEnabled", true}});
    run();
    EXPECT_TRUE(wrixel2d->state().dndActive);
    EXPECT_EQ(isConnectedMode(), c.quiet);
    send("DND", {{"DNDEnabled", "no"}});
    run();
    EXPECT_EQ(isConnectedMode(), c.normal);
  }
  // An absent flag is false, and so is one of no use.
  for (const Dictionary& userInfo :
       {Dictionary{}, Dictionary{{"DNDEnabled", platform::Bytes{1}}}}) {
    send("DND", {{"DNDEnabled", 1}});
    send("DND", userInfo);
    run();
    EXPECT_FALSE(wrixel2d->state().dndActive);
  }
}

TEST_F(Wrixel2dTest, DoNotDisturbBeforeTheStartCountsAtTheStart) {
  companion->settings = {{"connectedMode", 2}};
  start();
  send("DND", {{"DNDEnabled", true}});
  send("letUsStart");
  run();
  EXPECT_FALSE(isConnectedMode());
}

// Lock tracking ----------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, TellsLocksFromUnlocks) {
  constexpr const char* kComplete = "com.apple.springboard.lockcomplete";
  constexpr const char* kState = "com.apple.springboard.lockstate";
  const struct {
    std::vector<const char*> postings;
    bool locked;
    bool seen;
    bool started;
  } kCases[] = {
      {{}, true, false, false},
      {{kState}, false, false, true},
      {{kComplete}, true, true, false},
      {{kComplete, kState}, true, false, false},
      {{kComplete, kComplete, kState}, true, false, false},
      {{kComplete, kState, kState}, false, false, true},
      {{kState, kComplete}, true, true, true},
      {{kState, kComplete, kState}, true, false, true},
      {{kState, kComplete, kState, kState}, false, false, true},
  };
  for (const auto& c : kCases) {
    wrixel2d.reset();
    start();
    for (const auto* posting : c.postings) {
      post(posting);
    }
    run();
    const auto& state = wrixel2d->state();
    SCOPED_TRACE(c.postings.size());
    EXPECT_EQ(state.deviceLocked, c.locked);
    EXPECT_EQ(state.lockCompleteSeen, c.seen);
    EXPECT_EQ(state.started, c.started);
  }
  // Once started, an unlock reads no settings.
  forget();
  post(kState);
  run();
  EXPECT_TRUE(system.messageCenters.sentMessages("getPrefsDict").empty());
}

// Settings ---------------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, HealthSettingsAreReadAgainAndNothingElse) {
  startService();
  change("enabled", false, "/hk");
  EXPECT_FALSE(wrixel2d->state().settings.enabled);
  EXPECT_TRUE(wrixel2d->state().started) << "only read";
  change("enabled", true, "/hk");
  EXPECT_EQ(system.messageCenters.sentMessages().size(), 2U);
}

TEST_F(Wrixel2dTest, TheMoveReloadReadsItsSevenKeysAloneAndReplacesTheSnapshot) {
  startService();
  companion->settings = {{"enabled", false},      {"timeout", 60},     {"moveEnabled", true},
                         {"onlyWeekdays", false}, {"sensitivity", 20}, {"stepRepeat", 3},
                         {"remindPeriod", 2},     {"startSteps", 9},   {"endSteps", 18},
                         {"MBIcon-app", 9}};
  postPreference("/move");
  run();
  const auto& settings = wrixel2d->state().settings;
  EXPECT_TRUE(settings.enabled);
  EXPECT_EQ(settings.timeout, 15U);
  EXPECT_TRUE(settings.move.moveEnabled);
  EXPECT_FALSE(settings.move.onlyWeekdays);
  EXPECT_EQ(settings.move.sensitivity, 20U);
  EXPECT_EQ(settings.move.stepRepeat, 3U);
  EXPECT_EQ(settings.move.remindPeriod, 2U);
  EXPECT_EQ(settings.move.startSteps, 9U);
  EXPECT_EQ(settings.move.endSteps, 18U);
  send("appChanged", {{"appInfo", "app"}});
  run();
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, {}}));
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
  for (const auto* suffix : {"/measure", "/hkInterval", "/continuous", "/stopwatchChanged"}) {
    companion->settings.emplace("hrInterval", 30);
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
  EXPECT_EQ(lines(LogLevel::info), (std::vector<std::string>{"#Forwaring: org.example.Chat"}));
  EXPECT_EQ(newBandAlert(), (BandAlert{2, 9, 4, "Anna:See you at six"}));
  EXPECT_FALSE(system.log.contains(LogLevel::info, "See you")) << "texts are private";

  forget();
  bulletin({{"sectionID", "com.apple.mobiletimer"}, {"title", "Alarm"}});
  EXPECT_EQ(lines(LogLevel::info),
            (std::vector<std::string>{"Triggering an alarm in an enhanced mode ..."}));
  EXPECT_EQ(newBandAlert(), (BandAlert{20, 27, 8, {}}));

  // Without an icon of its own an app passes the rules, and the band stays as it is.
  forget();
  bulletin({{"sectionID", "org.example.Other"}, {"message", "text"}});
  EXPECT_EQ(lines(LogLevel::info), (std::vector<std::string>{"#Forwaring: org.example.Other"}));
  EXPECT_FALSE(newBandAlert());

  forget();
  send("DND", {{"DNDEnabled", true}});
  bulletin(kMessage);
  EXPECT_EQ(lines(LogLevel::info),
            (std::vector<std::string>{"Not forwarding org.example.Chat: Do Not Disturb is on"}));
  EXPECT_FALSE(newBandAlert());
}

TEST_F(Wrixel2dTest, WhatIsNotForwardedHasOneLineWithItsReason) {
  struct {
    Dictionary settings;
    Dictionary bulletin;
    const char* line;
  } const cases[] = {
      {{{"enabled", false}}, {{"sectionID", "app"}}, "app: the service is switched off"},
      {{{"onlyLocked", true}}, {{"sectionID", "app"}}, "app: the phone is not locked"},
      {{},
       {{"sectionID", "com.apple.mobilephone"}},
       "com.apple.mobilephone: calls are alerted as calls"},
      {{},
       {{"sectionID", "com.apple.mobiletimer"}},
       "com.apple.mobiletimer: an alarm without a title"},
      {{{"donotannoy", true}}, {{"sectionID", "twice"}}, "twice: too soon after the last one"},
  };
  startService();
  post("com.apple.springboard.lockstate");
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    companion->settings = c.settings;
    postPreference("/hk");
    run();
    if (c.settings.contains("donotannoy")) {
      bulletin(c.bulletin);
    }
    forget();
    bulletin(c.bulletin);
    EXPECT_EQ(lines(LogLevel::info),
              (std::vector<std::string>{std::string("Not forwarding ") + c.line}));
    EXPECT_FALSE(newBandAlert());
  }
}

TEST_F(Wrixel2dTest, EntriesOfTheWrongKindReadAsAbsent) {
  startService({{"MBIcon-app", 9}, {"MBPreview-app", true}});
  bulletin({{"sectionID", "app"}, {"title", 5}, {"message", platform::Array{}}, {"sender", true}});
  EXPECT_EQ(newBandAlert(), (BandAlert{1, 9, 0, ""}));
  EXPECT_EQ(lines(LogLevel::warning).size(), 3U);

  const Dictionary kUnusable[] = {{}, {{"sectionID", 7}}, {{"message", "no one's"}}};
  for (const auto& userInfo : kUnusable) {
    forget();
    bulletin(userInfo);
    EXPECT_TRUE(lines(LogLevel::info).empty());
    EXPECT_TRUE(system.log.contains(LogLevel::warning, "without sectionID"));
  }
  forget();
  send("appChanged");
  send("appChanged", {{"appInfo", 1.5}});
  run();
  EXPECT_FALSE(newBandAlert());
  EXPECT_EQ(system.log.count(LogLevel::warning, "Ignoring an appChanged without appInfo"), 2U);
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
}

TEST_F(Wrixel2dTest, TheHistoryIsNotKeptWhileDoNotAnnoyIsOff) {
  startService({{"MBIcon-app", 9}});
  bulletin({{"sectionID", "app"}});
  change("donotannoy", true, "/hk");
  newBandAlert();
  bulletin({{"sectionID", "app"}});
  EXPECT_TRUE(newBandAlert());
  change("donotannoy", false, "/hk");
  system.runLoop.runFor(10s);
  bulletin({{"sectionID", "app"}});
  change("donotannoy", true, "/hk");
  system.runLoop.runFor(6s);
  newBandAlert();
  bulletin({{"sectionID", "app"}});
  EXPECT_TRUE(newBandAlert()) << "16 s after the last one that was remembered";
}

TEST_F(Wrixel2dTest, CallsRingUnlessTheServiceOrTheOwnerIsQuiet) {
  const struct {
    const char* what;
    Dictionary settings;
    bool dnd;
    bool rings;
  } kCases[] = {
      {"as usual", {}, false, true},
      {"only locked and do-not-annoy play no part",
       {{"onlyLocked", true}, {"donotannoy", true}, {"timeout", 100}},
       false,
       true},
      {"Do Not Disturb", {}, true, false},
      {"Do Not Disturb not honoured", {{"donotdisturb", false}}, true, true},
      {"off", {{"enabled", false}}, false, false},
  };
  startService();
  post("com.apple.springboard.lockstate");
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    companion->settings = c.settings;
    postPreference("/hk");
    send("DND", {{"DNDEnabled", c.dnd}});
    send("phoneCall", {{"newCall", false}, {"text", "Anna"}, {"callHanged", true}});
    run();
    EXPECT_EQ(newBandAlert(), c.rings ? std::optional(BandAlert{2, 29, 8, "Anna"}) : std::nullopt)
        << "present is enough, whatever its value";
    EXPECT_EQ(manager->isNotificationActive(), c.rings);

    send("phoneCall", {{"callHanged", false}});
    run();
    EXPECT_FALSE(manager->isNotificationActive());
    EXPECT_FALSE(newBandAlert());
    send("phoneCall", {{"text", "Anna"}});
    run();
    EXPECT_FALSE(newBandAlert());
  }
  companion->settings = {};
  postPreference("/hk");
  send("phoneCall", {{"newCall", 1}});
  run();
  EXPECT_EQ(newBandAlert(), (BandAlert{2, 29, 8, {}}));
}

TEST_F(Wrixel2dTest, ACallThatEndsWhileTheOwnerIsQuietIsNotStopped) {
  startService();
  send("phoneCall", {{"newCall", 1}});
  send("DND", {{"DNDEnabled", true}});
  send("phoneCall", {{"callHanged", 1}});
  run();
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
  send("DND", {{"DNDEnabled", true}});
  send("appChanged", {{"appInfo", "app"}});
  run();
  EXPECT_FALSE(newBandAlert()) << "settings are not read again for it";
  postPreference("/hk");
  send("appChanged", {{"appInfo", "app"}});
  run();
  EXPECT_EQ(newBandAlert(), (BandAlert{2, 5, 2, "Sender:SomeText"}));
  change("MBPreview-app", false, "/hk");
  send("appChanged", {{"appInfo", "app"}});
  run();
  EXPECT_EQ(newBandAlert(), (BandAlert{2, 5, 2, {}}));
}

// Status -----------------------------------------------------------------------------------------

TEST_F(Wrixel2dTest, ShowsItsStatusAndAnnouncesEachChangeOnce) {
  constexpr const char* kPath = "/org/corvale/wrixel2dIpc";
  const auto property = [&](const char* name) {
    return system.objectExporter.property(kPath, name).value();
  };
  companion->settings = {{"hrInterval", 30}};
  start();
  ASSERT_TRUE(system.objectExporter.isExported(kPath));
  EXPECT_EQ(system.objectExporter.interfaceAtPath(kPath)->name, "org.corvale.wrixel2d.Status");
  EXPECT_EQ(property("State"), Value("off"));
  EXPECT_EQ(property("Band"), Value(""));
  EXPECT_EQ(property("Initialized"), Value(false));
  EXPECT_EQ(property("LockedTo"), Value(""));
  EXPECT_EQ(property("Battery"), Value(0));
  EXPECT_EQ(property("Steps"), Value(0));
  EXPECT_EQ(property("NextMeasurement"), Value(0));
  EXPECT_EQ(property("NextStepCheck"), Value(0));
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
  std::vector<std::string> changes;
  for (const auto& change : system.objectExporter.propertyChanges()) {
    changes.push_back(change.name);
  }
  EXPECT_EQ(changes, (std::vector<std::string>{"Problem", "State", "LockedTo", "NextMeasurement"}));
  EXPECT_EQ(system.serviceManager.statuses().back(), "idle");
}

TEST_F(Wrixel2dTest, GoesOnWithoutAStatusOnTheBus) {
  class NoExporter final : public platform::ObjectExporter {
    platform::Result<std::unique_ptr<platform::ExportedObject>> exportObject(
        std::string_view, std::string_view, platform::ExportedInterface) override {
      return platform::Error{EIO, "no bus"};
    }
  } exporter;
  StatusObject object(
      {system.runLoop, system.clock, system.timeZone, system.log, system.messageCenters,
       system.darwinNotifyCenter, system.distributedNotificationCenter, exporter, system.radio,
       system.healthStore, system.propertyLists, system.userDefaults, system.fileManager,
       system.systemInfo, system.serviceManager},
      platform::Logger(system.log, "main"));
  EXPECT_EQ(lines(LogLevel::warning).size(), 1U);
  DaemonStatus status;
  status.state = "idle";
  status.band = "c8:0f:10:aa:bb:0c";
  object.setStatus(status);
  EXPECT_EQ(system.serviceManager.statuses(),
            std::vector<std::string>{"idle, band c8:0f:10:aa:bb:0c"});
}

}  // namespace
}  // namespace wrixel2::daemon
