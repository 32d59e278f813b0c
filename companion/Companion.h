#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "companion/AppNotification.h"
#include "companion/NotificationFilter.h"
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
};

/// The daemon's partner in the phone's shell: it answers the daemon's questions for settings and
/// paths, and tells it what happens on the phone.
///
/// It never waits for the daemon, which may at that moment be waiting for an answer from here.
class Companion {
 public:
  /// `miFitPath` is the directory with the files of the band maker's app.
  Companion(CompanionSurroundings surroundings, const std::string& settingsPath,
            std::string miFitPath);

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

  /// The settings file may have changed.
  void settingsFileChanged();

  /// An app has notified.
  void appNotified(const AppNotification& notification);

 private:
  void registerMessages();
  void tellCompanionSettings();
  platform::Dictionary answerPrefs();
  void showUserAlert(const platform::Dictionary& userInfo);
  /// Answers when the rate is durable, or with the error.
  platform::Result<platform::Dictionary> storeHeartRate(const platform::Dictionary& userInfo);

  CompanionSurroundings surroundings_;
  platform::Logger logger_;
  SettingsStore settings_;
  NotificationFilter filter_;
  std::string miFitPath_;
  std::function<void(const settings::CompanionSettings&)> settingsCallback_;
  /// What the daemon has, as far as is known: the dictionary last sent to it, and the one that it
  /// has been told to fetch.
  platform::Dictionary knownPrefs_;
  /// Whether the owner knows that heart rates are not stored at present.
  bool isStoreFailureShown_ = false;
  std::unique_ptr<platform::MessageCenter> center_;
  std::unique_ptr<platform::MessageCenter> daemonCenter_;
};

}  // namespace wrixel2::companion
