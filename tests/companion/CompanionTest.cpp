#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/ButtonPresses.h"
#include "companion/Companion.h"
#include "companion/DoNotDisturbSource.h"
#include "companion/LockSource.h"
#include "companion/SeenApps.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "tests/companion/Doubles.h"

namespace wrixel2::companion {
namespace {

using platform::Dictionary;
using platform::LogLevel;
using Reached = std::vector<std::string>;

constexpr const char* kSettings = "/home/anna/.config/wrixel2/settings.toml";
constexpr const char* kCopy = "/home/anna/.local/state/wrixel2/settings.toml";
constexpr const char* kHk = "org.corvale.wrixel2prefs.preferencechanged/hk";
constexpr const char* kLockComplete = "com.apple.springboard.lockcomplete";
constexpr const char* kLockState = "com.apple.springboard.lockstate";
constexpr const char* kEveryApp = "[apps.\"*\"]\nicon = 5\n";

struct FakeDoNotDisturb final : DoNotDisturbSource {
  using DoNotDisturbSource::setActive;
};

struct FakeLock final : LockSource {
  using LockSource::setLocked;
};

struct FakeButton final : ButtonPresses {
  void buttonPressed() override { ++presses; }
  int presses = 0;
};

/// A companion, and a daemon that writes down what reaches it, in order. It asks for the settings
/// when it is told to start or to read them anew, as the real one does.
class CompanionTest : public testing::Test {
 protected:
  CompanionTest() {
    daemon_->runServer();
    doNotDisturb_.onChange([this] { companion_.doNotDisturbChanged(); });
    lock_.onChange([this] { companion_.lockChanged(); });
    for (const char* name : {"DND", "letUsStart", "bulletinRequest", "stopVibration"}) {
      daemon_->registerForMessageName(
          name, [this](std::string_view message, const Dictionary& userInfo) {
            std::string line(message);
            if (message == "DND") {
              line += platform::boolForKey(userInfo, "DNDEnabled") ? " on" : " off";
            } else if (message == "bulletinRequest") {
              const std::string app = platform::textForKey(userInfo, "sectionID").value_or("");
              line = app + " icon " + std::to_string(platform::intForKey(prefs_, "MBIcon-" + app));
              titles_.push_back(platform::textForKey(userInfo, "title").value_or(""));
            } else if (message == "letUsStart") {
              fetchPrefs();
            }
            reached_.push_back(line);
          });
    }
    for (const char* name :
         {kLockComplete, kLockState, kHk, "org.corvale.wrixel2prefs.preferencechanged"}) {
      observations_.push_back(phone_.darwinNotifyCenter.addObserver(
          name, platform::SuspensionBehavior::coalesce, [this](std::string_view posted) {
            reached_.emplace_back(posted);
            if (posted == kHk) {
              fetchPrefs();
            }
          }));
    }
  }

  void writeSettings(const std::string& text) { phone_.fileManager.addFile(kSettings, text); }
  void edit(const std::string& text) {
    writeSettings(text);
    companion_.settingsFileChanged();
  }
  void serve() { ASSERT_EQ(companion_.serve(), std::nullopt); }
  void serveIntroduced() {
    serve();
    companion_.introduceToDaemon();
    reached();
  }

  void fetchPrefs() {
    const auto reply = asDaemon_->sendMessageAndReceiveReplyName("getPrefsDict");
    ASSERT_TRUE(reply);
    prefs_ = *reply;
  }

  void notify(const std::string& app, const std::string& body) {
    companion_.appNotified({app, "Anna", body, std::nullopt, false, 0});
  }
  void alarm(const std::string& handle, AlarmPhase phase = AlarmPhase::ringing,
             const std::string& body = "07:00") {
    AppNotification notification{"org.gnome.clocks", "Wake up", body, std::nullopt, false, 0};
    notification.alarm = phase;
    notification.handle = handle;
    companion_.appNotified(notification);
  }
  /// Longer than any notification is remembered as a copy.
  void passNineMinutes() { phone_.runLoop.runFor(std::chrono::minutes(9)); }

  /// What has reached the daemon since the last call.
  Reached reached() {
    phone_.runLoop.runUntilIdle();
    return std::exchange(reached_, {});
  }

  platform::simulated::SimulatedPlatform phone_;
  FakeDoNotDisturb doNotDisturb_;
  FakeLock lock_;
  FakeUserAlerts userAlerts_;
  FakeButton button_;
  FakeBandWork bandWork_;
  mbble::MBHealthKitManager healthKit_{phone_.healthStore, phone_.systemInfo, phone_.clock,
                                       phone_.log};
  std::unique_ptr<platform::MessageCenter> daemon_ =
      phone_.messageCenters.centerNamed("org.corvale.wrixel2dIpc");
  /// The daemon's way to the companion.
  std::unique_ptr<platform::MessageCenter> asDaemon_ =
      phone_.messageCenters.centerNamed("org.corvale.wrixel2Ipc");
  std::vector<std::unique_ptr<platform::Observation>> observations_;
  Reached reached_;
  std::vector<std::string> titles_;  ///< of the bulletins
  bool areCopiesLate_ = false;
  int copies_ = 0;  ///< of good settings, as they were written
  Dictionary prefs_;
  SeenApps seenApps_{phone_.runLoop, phone_.clock, phone_.propertyLists, phone_.log,
                     "/home/anna/.local/state/wrixel2/apps.plist"};
  Companion companion_{{phone_.messageCenters, phone_.darwinNotifyCenter, phone_.clock, phone_.log,
                        phone_.fileManager, doNotDisturb_, lock_, userAlerts_, healthKit_, button_,
                        bandWork_, seenApps_},
                       {kSettings, kCopy, "/home/anna/.local/share/wrixel2/MiFit"},
                       [this](const platform::Bytes& contents) {
                         ++copies_;
                         if (areCopiesLate_) {
                           return;
                         }
                         EXPECT_FALSE(phone_.fileManager.writeAtomically(kCopy, contents));
                       }};
};

TEST_F(CompanionTest, AnswersWithSettingsAndThePathOfTheKeyFiles) {
  phone_.messageCenters.setTaken("org.corvale.wrixel2Ipc", true);
  EXPECT_NE(companion_.serve(), std::nullopt) << "the name is another's";
  phone_.messageCenters.setTaken("org.corvale.wrixel2Ipc", false);
  serve();
  fetchPrefs();
  EXPECT_EQ(prefs_, Dictionary{});
  EXPECT_TRUE(phone_.log.contains(LogLevel::info, kSettings)) << "there is no file";
  edit("enabled = false\n");
  fetchPrefs();
  EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}}));
  const auto info = asDaemon_->sendMessageAndReceiveReplyName("appInfo");
  ASSERT_TRUE(info);
  EXPECT_EQ(*info, (Dictionary{{"MiFitBasePath", "/home/anna/.local/share/wrixel2/MiFit"}}));
}

TEST_F(CompanionTest, TellsThePhonesStateBeforeTheStartAndThenItsChangesOnce) {
  serve();
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (Reached{"DND off", kLockState, "letUsStart"}));
  companion_.daemonGone();
  doNotDisturb_.setActive(true);
  lock_.setLocked(true);
  EXPECT_EQ(reached(), Reached{});
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (Reached{"DND on", kLockComplete, kLockState, "letUsStart"}));

  companion_.doNotDisturbChanged();
  companion_.lockChanged();
  EXPECT_EQ(reached(), Reached{});
  doNotDisturb_.setActive(false);
  EXPECT_EQ(reached(), Reached{"DND off"});
  lock_.setLocked(false);
  EXPECT_EQ(reached(), Reached{kLockState});
  lock_.setLocked(true);
  EXPECT_EQ(reached(), (Reached{kLockComplete, kLockState}));
}

TEST_F(CompanionTest, AnAlarmThatEndsOnThePhoneStopsTheBandOnce) {
  const Reached kAlerted{"com.apple.mobiletimer icon 0"};
  const Reached kStopped{"stopVibration"};
  serveIntroduced();
  alarm("call :1.5 9");
  EXPECT_EQ(reached(), kAlerted);
  companion_.notificationRenamed("call :1.5 9", "number 3");
  companion_.notificationEnded("number 4");
  companion_.notificationEnded("");
  EXPECT_EQ(reached(), Reached{});
  companion_.notificationEnded("number 3");
  companion_.notificationEnded("number 3");
  EXPECT_EQ(reached(), kStopped);

  // Shown by two programs: the end of the copy is its end, too.
  passNineMinutes();
  alarm("name org.gnome.clocks 1");
  alarm("call :1.6 2");
  companion_.notificationRenamed("call :1.6 2", "number 7");
  EXPECT_EQ(reached(), kAlerted);
  companion_.notificationEnded("number 7");
  companion_.notificationEnded("name org.gnome.clocks 1");
  EXPECT_EQ(reached(), kStopped);

  // One that never was alerted ends unnoticed.
  passNineMinutes();
  notify("Chat", "one");
  reached();
  companion_.notificationEnded("number 8");
  EXPECT_EQ(reached(), Reached{});

  // One that is over before the daemon is back rings no more.
  companion_.daemonGone();
  alarm("number 3");
  notify("Chat", "two");
  companion_.notificationEnded("number 3");
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (Reached{"DND off", kLockState, "letUsStart", "Chat icon 0"}));
}

TEST_F(CompanionTest, ASnoozedAlarmStopsTheBandBeforeItIsSaid) {
  serveIntroduced();
  alarm("name org.gnome.clocks 1");
  alarm("name org.gnome.clocks 1", AlarmPhase::ringing, "07:01");
  reached();
  alarm("name org.gnome.clocks 1", AlarmPhase::snoozing);
  companion_.notificationEnded("name org.gnome.clocks 1");
  EXPECT_EQ(reached(), (Reached{"stopVibration", "com.apple.mobiletimer icon 0"}));
  EXPECT_EQ(titles_, (Reached{"Wake up", "Wake up", "Snoozing"}));

  // Or something else takes its place, by number.
  passNineMinutes();
  alarm("call :1.5 9");
  companion_.notificationRenamed("call :1.5 9", "number 3");
  reached();
  companion_.appNotified({"org.gnome.clocks", "Alarm missed", "", std::nullopt, false, 3});
  EXPECT_EQ(reached(), (Reached{"stopVibration", "org.gnome.clocks icon 0"}));
}

TEST_F(CompanionTest, AppsThatWereSeenAreKnownFromTheStart) {
  writeSettings(kEveryApp);
  seenApps_.noted("Chat", "");
  serveIntroduced();
  EXPECT_EQ(platform::intForKey(prefs_, "MBIcon-Chat"), 5);
  notify("Chat", "one");
  alarm("number 3");
  EXPECT_EQ(reached(), (Reached{"Chat icon 5", kHk, "com.apple.mobiletimer icon 5"}));
  ASSERT_EQ(seenApps_.apps().size(), 2U);
  EXPECT_EQ(seenApps_.apps()[0].count, 2);
  EXPECT_EQ(seenApps_.apps()[1].identifier, "com.apple.mobiletimer");
}

TEST_F(CompanionTest, MakesTheDaemonReadTheKeysOfANewAppBeforeItsFirstBulletin) {
  serveIntroduced();
  notify("Film", "one");
  notify("Film", "one");
  EXPECT_EQ(reached(), Reached{"Film icon 0"}) << "an app that gets nothing, and no news";
  EXPECT_EQ(bandWork_.causes, 1) << "what is no news keeps the phone awake";
  edit(std::string(kEveryApp) + "[apps.Chat]\nicon = 9\n");
  EXPECT_EQ(reached(), Reached{kHk});
  notify("Chat", "one");  // has a table, so that the daemon knows it already
  EXPECT_EQ(reached(), Reached{"Chat icon 9"});
  notify("Mail", "one");
  notify("Mail", "two");  // before the daemon has had time to ask
  EXPECT_EQ(reached(), (Reached{kHk, "Mail icon 5", "Mail icon 5"}));
  notify("Mail", "three");
  EXPECT_EQ(reached(), Reached{"Mail icon 5"});

  // What waits for a daemon follows the introduction.
  companion_.daemonGone();
  notify("News", "one");
  EXPECT_EQ(reached(), Reached{});
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (Reached{"DND off", kLockState, "letUsStart", kHk, "News icon 5"}));

  // One that comes back knows nothing while its "letUsStart" is still on the way, or lost.
  daemon_->registerForMessageName("letUsStart", [](std::string_view, const Dictionary&) {});
  companion_.introduceToDaemon();
  reached();
  notify("Mail", "four");
  EXPECT_EQ(reached(), (Reached{kHk, "Mail icon 5"}));
}

TEST_F(CompanionTest, PostsWhatAnEditChangedAndKeepsTheLastGoodSettings) {
  std::vector<std::int64_t> thresholds;
  companion_.onSettings([&](const settings::CompanionSettings& settings) {
    thresholds.push_back(settings.lowBattery);
  });
  writeSettings("enabled = true\n[battery]\nalertBelow = 20\n");
  serve();
  edit("enabled = false\ntimeout = 3\n[battery]\nalertBelow = 20\n");
  EXPECT_EQ(reached(), (Reached{"org.corvale.wrixel2prefs.preferencechanged", kHk}));
  const Dictionary good{{"enabled", false}, {"timeout", 3}};
  EXPECT_EQ(prefs_, good);
  companion_.settingsFileChanged();
  EXPECT_EQ(reached(), Reached{});

  for (const auto& [text, problem] :
       {std::pair("enabled = true\nmode = \n", ":2: "),
        std::pair("enabled = true\nmode = 1.5\n", ":2: mode is a real number"),
        std::pair("enabled = true\n[battery]\nalertBelow = 101\n", ":3: ")}) {
    SCOPED_TRACE(text);
    edit(text);
    EXPECT_EQ(reached(), Reached{});
    EXPECT_TRUE(phone_.log.contains(LogLevel::error, std::string(kSettings) + problem));
    EXPECT_TRUE(companion_.settingsProblem().starts_with(std::string(kSettings) + problem));
    fetchPrefs();
    EXPECT_EQ(prefs_, good);
  }
  EXPECT_EQ(userAlerts_.presented.size(), 3U) << "once for each";
  EXPECT_NE(userAlerts_.presented.front().find(":2: "), std::string::npos);
  EXPECT_EQ(copies_, 2) << "only of what is good and new";
  phone_.fileManager.removeItemAtPath(kSettings);
  companion_.settingsFileChanged();
  EXPECT_EQ(companion_.settingsProblem(), "");
  fetchPrefs();
  EXPECT_EQ(prefs_, good);
  edit("[battery]\nalertBelow = 30\n");
  EXPECT_EQ(thresholds, (std::vector<std::int64_t>{20, 30}));
}

TEST_F(CompanionTest, AFaultyFileAtTheStartIsStoodInForByTheLastGoodSettings) {
  const std::string head = std::string("# The last good version of ") + kSettings + "\n";
  phone_.fileManager.addFile(kCopy, head + "timeout = 3\n");
  writeSettings("timeout = \n");
  serve();
  fetchPrefs();
  EXPECT_EQ(prefs_, (Dictionary{{"timeout", 3}}));
  EXPECT_EQ(userAlerts_.presented.size(), 1U);
  EXPECT_NE(companion_.settingsProblem(), "");
  edit("timeout = 4\n");
  EXPECT_EQ(phone_.fileManager.textAtPath(kCopy), head + "timeout = 4\n");

  areCopiesLate_ = true;
  copies_ = 0;
  edit("timeout = 5\n");
  edit("timeout = 4\n");
  EXPECT_EQ(copies_, 2) << "the one before, still to be written, is the wrong one";
}

TEST_F(CompanionTest, ShowsTheDaemonsAlertsAndHandsOnPressesOfTheButton) {
  serve();
  asDaemon_->sendMessageName("alertUser", {{"title", "Warning"}, {"message", "No key"}});
  asDaemon_->sendMessageName("alertUser", {{"message", "No title"}});
  asDaemon_->sendMessageName("alertUser", {});
  asDaemon_->sendMessageName("alertUser", {{"title", 7}});
  asDaemon_->sendMessageName("buttonPressed");
  asDaemon_->sendMessageName("buttonPressed");
  phone_.runLoop.runUntilIdle();
  EXPECT_EQ(userAlerts_.presented, (Reached{"Warning: No key", ": No title"}));
  EXPECT_EQ(button_.presses, 2);
}

TEST_F(CompanionTest, AcknowledgesAHeartRateOnceItIsStored) {
  serve();
  const auto write = [this](const Dictionary& userInfo) {
    return static_cast<bool>(asDaemon_->sendMessageAndReceiveReplyName("writeHeartRate", userInfo));
  };
  EXPECT_TRUE(write({{"heartRate", 71}}));
  EXPECT_TRUE(write({{"heartRate", 0}})) << "nothing to store, and nothing failed";
  EXPECT_FALSE(write({}));
  for (const platform::Value& wrong :
       {platform::Value(platform::Array()), platform::Value("abc"), platform::Value("66"),
        platform::Value(66.5), platform::Value(true), platform::Value(-5), platform::Value(300),
        platform::Value(INT64_MAX)}) {
    EXPECT_FALSE(write({{"heartRate", wrong}})) << platform::kindName(wrong);
  }
  ASSERT_EQ(phone_.healthStore.samples().size(), 1U);
  EXPECT_EQ(phone_.healthStore.samples().front().quantity, 71);

  // A slow disk holds up nobody but who waits for it.
  phone_.healthStore.setIsSlow(true);
  bool isAnswered = false;
  const auto pending = asDaemon_->sendMessageNameForAnswer(
      "writeHeartRate", {{"heartRate", 72}},
      [&](const platform::Result<Dictionary>& answer) { isAnswered = static_cast<bool>(answer); });
  phone_.runLoop.runUntilIdle();
  fetchPrefs();
  EXPECT_FALSE(isAnswered);
  phone_.healthStore.setIsSlow(false);
  EXPECT_TRUE(isAnswered);

  // The owner is told when storing begins to fail, not at every measurement.
  phone_.healthStore.saveError = platform::Error{28, "the disk is full"};
  EXPECT_FALSE(write({{"heartRate", 72}}));
  EXPECT_FALSE(write({{"heartRate", 73}}));
  phone_.healthStore.saveError.reset();
  EXPECT_TRUE(write({{"heartRate", 74}}));
  phone_.healthStore.saveError = platform::Error{28, "the disk is full again"};
  EXPECT_FALSE(write({{"heartRate", 75}}));
  EXPECT_EQ(userAlerts_.presented, (Reached{"Heart rates are not stored: the disk is full",
                                            "Heart rates are not stored: the disk is full again"}));
}

}  // namespace
}  // namespace wrixel2::companion
