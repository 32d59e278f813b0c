#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "companion/AlarmWatch.h"
#include "companion/BulletinOutbox.h"
#include "companion/NotificationFilter.h"
#include "companion/NotificationListener.h"
#include "companion/SettingsStore.h"
#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/NotificationCenter.h"

namespace wrixel2::mbble {
class MBHealthKitManager;
}

namespace wrixel2::companion {

class BandWork;
class ButtonPresses;
class DoNotDisturbSource;
class LockSource;
class SeenApps;
class UserAlertPresenter;

/// What the companion works with; all of it outlives the companion.
///
/// The message centers and the notify center share one connection: what is posted on the one before
/// something is sent through the other reaches the daemon before it.
struct CompanionSurroundings {
  platform::MessageCenters& messageCenters;
  platform::DarwinNotifyCenter& darwinNotifyCenter;
  const platform::Clock& clock;
  platform::Log& log;
  const platform::FileManager& files;
  const DoNotDisturbSource& doNotDisturb;
  const LockSource& lock;
  UserAlertPresenter& userAlerts;
  mbble::MBHealthKitManager& healthKit;
  ButtonPresses& button;
  BandWork& bandWork;
  SeenApps& seenApps;
};

/// The owner's files, by absolute path.
struct CompanionPaths {
  std::string settings;
  /// Of the last good settings, for a start with a faulty file.
  std::string settingsCopy;
  /// The directory with the files of the band maker's app.
  std::string miFit;
};

/// The daemon's partner in the phone's shell: it answers the daemon's questions for settings and
/// paths, and tells it what happens on the phone.
///
/// It never waits for the daemon, which may at that moment be waiting for an answer from here.
class Companion final : public NotificationListener {
 public:
  Companion(CompanionSurroundings surroundings, CompanionPaths paths,
            SettingsStore::Keeper keepSettings);

  /// Called with what the settings say of the companion itself: when they have been read first, and
  /// after every reading that has changed it.
  void onSettings(std::function<void(const settings::CompanionSettings&)> callback) {
    settingsCallback_ = std::move(callback);
  }

  /// Reads the settings and serves the companion's center. Fails when another companion does.
  platform::ErrorOrNone serve();

  /// Tells the daemon the present state of the phone, and that it can start. For the companion's
  /// own start and whenever the daemon has come back.
  void introduceToDaemon();
  /// The daemon has gone: what is for it waits until the next introduction.
  void daemonGone();

  /// The settings file may have changed.
  void settingsFileChanged();

  /// Tell the daemon, unless it has been told that already or will be by the introduction.
  void doNotDisturbChanged();
  void lockChanged();

  /// See SettingsStore::problem().
  const std::string& settingsProblem() const { return settings_.problem(); }

  void appNotified(const AppNotification& notification) override;
  void notificationRenamed(const std::string& handle, const std::string& other) override;
  void notificationEnded(const std::string& handle) override;

 private:
  void registerMessages();
  void tellCompanionSettings();
  std::vector<std::string_view> loadSettings();
  platform::Dictionary answerPrefs();
  void announceSettingsOf(const std::string& sectionID);
  void endAlarms(const AlarmWatch::Tickets& tickets);
  void sendDoNotDisturb();
  void postLockState();
  void showUserAlert(const platform::Dictionary& userInfo);
  /// Answers when the rate is durable, or with the error.
  void storeHeartRate(const platform::Dictionary& userInfo, platform::MessageCenter::Reply reply);

  CompanionSurroundings surroundings_;
  platform::Logger logger_;
  SettingsStore settings_;
  NotificationFilter filter_;
  std::string miFitPath_;
  std::function<void(const settings::CompanionSettings&)> settingsCallback_;
  /// What the daemon has, as far as is known: the dictionary last sent to it, and the one that it
  /// has been told to fetch.
  platform::Dictionary knownPrefs_;
  bool isIntroduced_ = false;
  /// What the daemon was last told.
  bool toldDoNotDisturb_ = false;
  bool toldLocked_ = false;
  /// Whether the owner knows that heart rates are not stored at present.
  bool isStoreFailureShown_ = false;
  std::unique_ptr<platform::MessageCenter> center_;
  std::unique_ptr<platform::MessageCenter> daemonCenter_;
  BulletinOutbox outbox_;
  AlarmWatch alarms_;
};

}  // namespace wrixel2::companion
