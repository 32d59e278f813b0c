#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/BandWork.h"
#include "companion/ButtonPresses.h"
#include "companion/Companion.h"
#include "companion/DoNotDisturbSource.h"
#include "companion/LockSource.h"
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
  bool isActive() const override { return active; }
  bool active = false;
};

struct FakeLock final : LockSource {
  bool isLocked() const override { return locked; }
  bool locked = false;
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
    for (const char* name : {"DND", "letUsStart", "bulletinRequest"}) {
      daemon_->registerForMessageName(
          name, [this](std::string_view message, const Dictionary& userInfo) {
            std::string line(message);
            if (message == "DND") {
              line += platform::boolForKey(userInfo, "DNDEnabled") ? " on" : " off";
            } else if (message == "bulletinRequest") {
              const std::string app = platform::textForKey(userInfo, "sectionID").value_or("");
              line += " " + app + " icon " +
                      std::to_string(platform::intForKey(prefs_, "MBIcon-" + app));
            } else {
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
  Dictionary prefs_;
  Companion companion_{
      {phone_.messageCenters, phone_.darwinNotifyCenter, phone_.clock, phone_.log,
       phone_.fileManager, doNotDisturb_, lock_, userAlerts_, healthKit_, button_, bandWork_},
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
  doNotDisturb_.active = true;
  lock_.locked = true;
  companion_.introduceToDaemon();
  EXPECT_EQ(reached(), (std::vector<std::string>{"DND on", "com.apple.springboard.lockcomplete",
                                                 "com.apple.springboard.lockstate", "letUsStart"}));
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
    fetchPrefs();
    EXPECT_EQ(prefs_, (Dictionary{{"enabled", false}}));
  }
  phone_.fileManager.removeItemAtPath(kSettings);
  companion_.settingsFileChanged();
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
  serve();
  notify("Chat", "one");
  notify("Chat", "one");
  EXPECT_EQ(reached().size(), 1U);
  EXPECT_EQ(bandWork_.causes, 1) << "and nothing keeps the phone awake";
}

}  // namespace
}  // namespace wrixel2::companion
