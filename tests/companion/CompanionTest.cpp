#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/BandWork.h"
#include "companion/ButtonPresses.h"
#include "companion/Companion.h"
#include "companion/DoNotDisturbSource.h"
#include "companion/LockSource.h"
#include "companion/SeenApps.h"
#include "companion/UserAlertPresenter.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBHealthKitManager.h"

namespace wrixel2::companion {
namespace {

using platform::Dictionary;
using platform::LogLevel;

constexpr const char* kSettings = "/home/anna/.config/wrixel2/settings.toml";
constexpr const char* kHk = "org.corvale.wrixel2prefs.preferencechanged/hk";

struct FakeDoNotDisturb final : DoNotDisturbSource {
  using DoNotDisturbSource::setActive;
};

struct FakeLock final : LockSource {
  using LockSource::setLocked;
};

struct FakeUserAlerts final : UserAlertPresenter {
  void present(std::string_view title, std::string_view message) override {
    presented.emplace_back(title, message);
  }
  std::vector<std::pair<std::string, std::string>> presented;
};

struct FakeButton final : ButtonPresses {
  void buttonPressed() override { ++presses; }
  int presses = 0;
};

struct FakeBandWork final : BandWork {
  void bandHasWork() override { ++causes; }
  int causes = 0;
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
              line += " " + app + " icon " +
                      std::to_string(platform::intForKey(prefs_, "MBIcon-" + app));
              titles_.push_back(platform::textForKey(userInfo, "title").value_or(""));
            } else if (message == "letUsStart") {
              fetchPrefs();
            }
            reached_.push_back(line);
          });
    }
    for (const char* name :
         {"com.apple.springboard.lockcomplete", "com.apple.springboard.lockstate", kHk,
          "org.corvale.wrixel2prefs.preferencechanged"}) {
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

  void serve() { ASSERT_EQ(companion_.serve(), std::nullopt); }

  void fetchPrefs() {
    const auto reply = asDaemon_->sendMessageAndReceiveReplyName("getPrefsDict");
    ASSERT_TRUE(reply);
    prefs_ = *reply;
  }

  void notify(const std::string& app, const std::string& body) {
    companion_.appNotified({app, "Anna", body, std::nullopt, false, 0});
  }

  void serveIntroduced() {
    serve();
    companion_.introduceToDaemon();
    reached();
  }

  static AppNotification alarm(const std::string& handle, AlarmPhase phase = AlarmPhase::ringing) {
    AppNotification notification{"org.gnome.clocks", "Wake up", "07:00", std::nullopt, false, 0};
    notification.alarm = phase;
    notification.handle = handle;
    return notification;
  }

  /// What has reached the daemon since the last call.
  std::vector<std::string> reached() {
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
  std::vector<std::string> reached_;
  std::vector<std::string> titles_;  ///< of the bulletins
  Dictionary prefs_;
  SeenApps seenApps_{phone_.runLoop, phone_.clock, phone_.propertyLists, phone_.log,
                     "/home/anna/.local/state/wrixel2/apps.plist"};
  Companion companion_{{phone_.messageCenters, phone_.darwinNotifyCenter, phone_.clock, phone_.log,
                        phone_.fileManager, doNotDisturb_, lock_, userAlerts_, healthKit_, button_,
                        bandWork_, seenApps_},
                       kSettings,
                       "/home/anna/.local/share/wrixel2/MiFit"};
};

TEST_F(CompanionTest, AnswersWithSettingsAndThePathOfTheKeyFiles) {
  writeSettings("enabled = false\n");
  serve();
  fetchPrefs();
  EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}}));
  const auto info = asDaemon_->sendMessageAndReceiveReplyName("appInfo");
  ASSERT_TRUE(info);
  EXPECT_EQ(*info, (Dictionary{{"MiFitBasePath", "/home/anna/.local/share/wrixel2/MiFit"}}));
}

TEST_F(CompanionTest, DoesNotTakeTheNameFromAnother) {
  phone_.messageCenters.setTaken("org.corvale.wrixel2Ipc", true);
  EXPECT_NE(companion_.serve(), std::nullopt);
}

TEST_F(CompanionTest, TellsThePhonesStateBeforeTheStart) {
  serve();
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(),
            (std::vector<std::string>{"DND off", "com.apple.springboard.lockstate", "letUsStart"}));
  companion_.daemonGone();
  doNotDisturb_.setActive(true);
  lock_.setLocked(true);
  EXPECT_EQ(reached(), std::vector<std::string>{});
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (std::vector<std::string>{"DND on", "com.apple.springboard.lockcomplete",
                                                 "com.apple.springboard.lockstate", "letUsStart"}));
}

TEST_F(CompanionTest, TellsChangesOfThePhonesStateOnce) {
  using Reached = std::vector<std::string>;
  serveIntroduced();
  doNotDisturb_.setActive(true);
  EXPECT_EQ(reached(), Reached{"DND on"});
  companion_.doNotDisturbChanged();
  EXPECT_EQ(reached(), Reached{});
  doNotDisturb_.setActive(false);
  EXPECT_EQ(reached(), Reached{"DND off"});
  lock_.setLocked(true);
  EXPECT_EQ(reached(),
            (Reached{"com.apple.springboard.lockcomplete", "com.apple.springboard.lockstate"}));
  companion_.lockChanged();
  EXPECT_EQ(reached(), Reached{});
  lock_.setLocked(false);
  EXPECT_EQ(reached(), Reached{"com.apple.springboard.lockstate"});
}

TEST_F(CompanionTest, AnAlarmThatEndsOnThePhoneStopsTheBandOnce) {
  using Reached = std::vector<std::string>;
  const Reached kAlerted{"bulletinRequest com.apple.mobiletimer icon 0"};
  const Reached kStopped{"stopVibration"};
  serveIntroduced();
  companion_.appNotified(alarm("call :1.5 9"));
  EXPECT_EQ(reached(), kAlerted);
  companion_.notificationRenamed("call :1.5 9", "number 3");
  companion_.notificationEnded("number 4");
  companion_.notificationEnded("");
  EXPECT_EQ(reached(), Reached{});
  companion_.notificationEnded("number 3");
  companion_.notificationEnded("number 3");
  EXPECT_EQ(reached(), kStopped);

  // Shown by two programs: the end of the copy is its end, too.
  phone_.runLoop.runFor(std::chrono::minutes(9));
  companion_.appNotified(alarm("name org.gnome.clocks 1"));
  companion_.appNotified(alarm("call :1.6 2"));
  companion_.notificationRenamed("call :1.6 2", "number 7");
  EXPECT_EQ(reached(), kAlerted);
  companion_.notificationEnded("number 7");
  companion_.notificationEnded("name org.gnome.clocks 1");
  EXPECT_EQ(reached(), kStopped);

  // One that never was alerted ends unnoticed.
  phone_.runLoop.runFor(std::chrono::minutes(9));
  notify("Chat", "one");
  reached();
  companion_.notificationEnded("number 8");
  EXPECT_EQ(reached(), Reached{});
}

TEST_F(CompanionTest, ASnoozedAlarmStopsTheBandBeforeItIsSaid) {
  using Reached = std::vector<std::string>;
  serveIntroduced();
  companion_.appNotified(alarm("name org.gnome.clocks 1"));
  AppNotification fresh = alarm("name org.gnome.clocks 1");
  fresh.body = "07:01";
  companion_.appNotified(fresh);
  reached();
  companion_.appNotified(alarm("name org.gnome.clocks 1", AlarmPhase::snoozing));
  companion_.notificationEnded("name org.gnome.clocks 1");
  EXPECT_EQ(reached(), (Reached{"stopVibration", "bulletinRequest com.apple.mobiletimer icon 0"}));
  EXPECT_EQ(titles_, (Reached{"Wake up", "Wake up", "Snoozing"}));

  // Or something else takes its place, by number.
  phone_.runLoop.runFor(std::chrono::minutes(9));
  companion_.appNotified(alarm("call :1.5 9"));
  companion_.notificationRenamed("call :1.5 9", "number 3");
  reached();
  AppNotification missed{"org.gnome.clocks", "Alarm missed", "", std::nullopt, false, 3};
  companion_.appNotified(missed);
  EXPECT_EQ(reached(), (Reached{"stopVibration", "bulletinRequest org.gnome.clocks icon 0"}));
}

TEST_F(CompanionTest, AnAlarmThatIsOverBeforeTheDaemonIsBackRingsNoMore) {
  serveIntroduced();
  companion_.daemonGone();
  companion_.appNotified(alarm("number 3"));
  notify("Chat", "one");
  companion_.notificationEnded("number 3");
  companion_.introduceToDaemon();
  const auto lines = reached();
  EXPECT_EQ(lines.back(), "bulletinRequest Chat icon 0");
  EXPECT_EQ(lines.size(), 4U) << "nothing but the introduction before it";
}

TEST_F(CompanionTest, AppsThatWereSeenAreKnownFromTheStart) {
  writeSettings("[apps.\"*\"]\nicon = 5\n");
  seenApps_.noted("Chat", "");
  serveIntroduced();
  EXPECT_EQ(platform::intForKey(prefs_, "MBIcon-Chat"), 5);
  notify("Chat", "one");
  companion_.appNotified(alarm("number 3"));
  EXPECT_EQ(reached(), (std::vector<std::string>{"bulletinRequest Chat icon 5", kHk,
                                                 "bulletinRequest com.apple.mobiletimer icon 5"}));
  ASSERT_EQ(seenApps_.apps().size(), 2U);
  EXPECT_EQ(seenApps_.apps()[0].count, 2);
  EXPECT_EQ(seenApps_.apps()[1].identifier, "com.apple.mobiletimer");
}

TEST_F(CompanionTest, WhatWaitsForTheDaemonFollowsTheIntroduction) {
  writeSettings("[apps.\"*\"]\nicon = 5\n");
  serveIntroduced();
  companion_.daemonGone();
  notify("Mail", "one");
  EXPECT_EQ(reached(), std::vector<std::string>{});
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(),
            (std::vector<std::string>{"DND off", "com.apple.springboard.lockstate", "letUsStart",
                                      kHk, "bulletinRequest Mail icon 5"}));
}

TEST_F(CompanionTest, MakesTheDaemonReadTheKeysOfANewAppBeforeItsFirstBulletin) {
  writeSettings("[apps.\"*\"]\nicon = 5\n[apps.Chat]\nicon = 9\n");
  serve();
  companion_.introduceToDaemon();
  reached();

  notify("Chat", "one");  // has a table, so that the daemon knows it already
  EXPECT_EQ(reached(), (std::vector<std::string>{"bulletinRequest Chat icon 9"}));
  notify("Mail", "one");
  notify("Mail", "two");  // before the daemon has had time to ask
  EXPECT_EQ(reached(), (std::vector<std::string>{kHk, "bulletinRequest Mail icon 5",
                                                 "bulletinRequest Mail icon 5"}));
  notify("Mail", "three");
  EXPECT_EQ(reached(), (std::vector<std::string>{"bulletinRequest Mail icon 5"}));
  notify("News", "one");
  EXPECT_EQ(reached(), (std::vector<std::string>{kHk, "bulletinRequest News icon 5"}));
}

TEST_F(CompanionTest, AnAppThatGetsNothingCausesNoReading) {
  serve();
  companion_.introduceToDaemon();
  reached();
  notify("Mail", "one");
  EXPECT_EQ(reached(), (std::vector<std::string>{"bulletinRequest Mail icon 0"}));
}

TEST_F(CompanionTest, ADaemonThatComesBackKnowsNothing) {
  writeSettings("[apps.\"*\"]\nicon = 5\n");
  serve();
  companion_.introduceToDaemon();
  notify("Mail", "one");
  reached();
  // Its "letUsStart" is still on the way, or lost: the daemon has not asked.
  daemon_->registerForMessageName("letUsStart", [](std::string_view, const Dictionary&) {});
  companion_.introduceToDaemon();
  reached();
  notify("Mail", "two");
  EXPECT_EQ(reached(), (std::vector<std::string>{kHk, "bulletinRequest Mail icon 5"}));
}

TEST_F(CompanionTest, PostsWhatAnEditChanged) {
  writeSettings("enabled = true\n");
  serve();
  writeSettings("enabled = false\ntimeout = 3\n");
  companion_.settingsFileChanged();
  EXPECT_EQ(reached(),
            (std::vector<std::string>{"org.corvale.wrixel2prefs.preferencechanged", kHk}));
  EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}, {"timeout", 3}}));
  companion_.settingsFileChanged();
  EXPECT_EQ(reached(), std::vector<std::string>{});
}

TEST_F(CompanionTest, KeepsTheLastGoodSettings) {
  writeSettings("enabled = false\n");
  serve();
  struct {
    const char* text;
    const char* error;
  } const broken[] = {
      {"enabled = true\nmode = \n", "/home/anna/.config/wrixel2/settings.toml:2: "},
      {"enabled = true\nmode = 1.5\n",
       "/home/anna/.config/wrixel2/settings.toml:2: mode is a real number"},
  };
  for (const auto& file : broken) {
    SCOPED_TRACE(file.text);
    writeSettings(file.text);
    companion_.settingsFileChanged();
    EXPECT_EQ(reached(), std::vector<std::string>{});
    EXPECT_TRUE(phone_.log.contains(LogLevel::error, file.error));
    EXPECT_TRUE(companion_.settingsProblem().starts_with(file.error));
    fetchPrefs();
    EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}}));
  }
  phone_.fileManager.removeItemAtPath(kSettings);
  companion_.settingsFileChanged();
  EXPECT_EQ(companion_.settingsProblem(), "");
  fetchPrefs();
  EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}}));
}

TEST_F(CompanionTest, StartsWithoutASettingsFile) {
  serve();
  fetchPrefs();
  EXPECT_EQ(prefs_, Dictionary{});
  EXPECT_TRUE(phone_.log.contains(LogLevel::info, kSettings));
}

TEST_F(CompanionTest, ShowsTheDaemonsAlerts) {
  serve();
  asDaemon_->sendMessageName("alertUser", {{"title", "Warning"}, {"message", "No key"}});
  asDaemon_->sendMessageName("alertUser", {{"message", "No title"}});
  asDaemon_->sendMessageName("alertUser", {});
  asDaemon_->sendMessageName("alertUser", {{"title", 7}});
  phone_.runLoop.runUntilIdle();
  EXPECT_EQ(userAlerts_.presented, (std::vector<std::pair<std::string, std::string>>{
                                       {"Warning", "No key"}, {"", "No title"}}));
}

TEST_F(CompanionTest, AcknowledgesAHeartRateOnceItIsStored) {
  serve();
  const auto write = [this](const Dictionary& userInfo) {
    return static_cast<bool>(asDaemon_->sendMessageAndReceiveReplyName("writeHeartRate", userInfo));
  };
  EXPECT_TRUE(write({{"heartRate", 71}}));
  EXPECT_TRUE(write({{"heartRate", 0}})) << "nothing to store, and nothing failed";
  EXPECT_FALSE(write({}));
  EXPECT_FALSE(write({{"heartRate", platform::Array()}}));
  ASSERT_EQ(phone_.healthStore.samples().size(), 1U);
  EXPECT_EQ(phone_.healthStore.samples().front().quantity, 71);

  // The owner is told when storing begins to fail, not at every measurement.
  phone_.healthStore.saveError = platform::Error{28, "the disk is full"};
  EXPECT_FALSE(write({{"heartRate", 72}}));
  EXPECT_FALSE(write({{"heartRate", 73}}));
  phone_.healthStore.saveError.reset();
  EXPECT_TRUE(write({{"heartRate", 74}}));
  phone_.healthStore.saveError = platform::Error{28, "the disk is full again"};
  EXPECT_FALSE(write({{"heartRate", 75}}));
  EXPECT_EQ(userAlerts_.presented, (std::vector<std::pair<std::string, std::string>>{
                                       {"Heart rates are not stored", "the disk is full"},
                                       {"Heart rates are not stored", "the disk is full again"}}));
}

TEST_F(CompanionTest, TellsOfItsOwnSettingsWhenTheyChange) {
  std::vector<std::int64_t> thresholds;
  companion_.onSettings([&](const settings::CompanionSettings& settings) {
    thresholds.push_back(settings.lowBattery);
  });
  writeSettings("[battery]\nalertBelow = 20\n");
  serve();
  writeSettings("enabled = false\n[battery]\nalertBelow = 20\n");
  companion_.settingsFileChanged();
  writeSettings("[battery]\nalertBelow = 101\n");
  companion_.settingsFileChanged();
  writeSettings("[battery]\nalertBelow = 30\n");
  companion_.settingsFileChanged();
  EXPECT_EQ(thresholds, (std::vector<std::int64_t>{20, 30}));
}

TEST_F(CompanionTest, HandsOnPressesOfTheButton) {
  serve();
  asDaemon_->sendMessageName("buttonPressed");
  asDaemon_->sendMessageName("buttonPressed");
  phone_.runLoop.runUntilIdle();
  EXPECT_EQ(button_.presses, 2);
}

TEST_F(CompanionTest, FiltersWhatIsNoNews) {
  serveIntroduced();
  notify("Chat", "one");
  notify("Chat", "one");
  EXPECT_EQ(reached().size(), 1U);
  EXPECT_EQ(bandWork_.causes, 1) << "and nothing keeps the phone awake";
}

}  // namespace
}  // namespace wrixel2::companion
