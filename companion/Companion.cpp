#include "companion/Companion.h"

#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "companion/BandWork.h"
#include "companion/ButtonPresses.h"
#include "companion/DoNotDisturbSource.h"
#include "companion/LockSource.h"
#include "companion/SeenApps.h"
#include "companion/UserAlertPresenter.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "settings/GlobalKeys.h"

namespace wrixel2::companion {

namespace {

using platform::Dictionary;

constexpr std::string_view kCenterName = "org.corvale.wrixel2Ipc";
constexpr std::string_view kDaemonCenterName = "org.corvale.wrixel2dIpc";
constexpr std::string_view kLockComplete = "com.apple.springboard.lockcomplete";
constexpr std::string_view kLockState = "com.apple.springboard.lockstate";

}  // namespace

Companion::Companion(CompanionSurroundings surroundings, CompanionPaths paths,
                     SettingsStore::Keeper keepSettings)
    : surroundings_(surroundings),
      logger_(surroundings.log, "Companion"),
      settings_(surroundings.files, surroundings.log, std::move(paths.settings),
                std::move(paths.settingsCopy), std::move(keepSettings)),
      filter_(surroundings.clock),
      miFitPath_(std::move(paths.miFit)),
      center_(surroundings.messageCenters.centerNamed(kCenterName)),
      daemonCenter_(surroundings.messageCenters.centerNamed(kDaemonCenterName)),
      outbox_(*daemonCenter_, surroundings.clock, surroundings.log,
              [this](const std::string& sectionID) { announceSettingsOf(sectionID); }) {}

platform::ErrorOrNone Companion::serve() {
  // Before the first question can come: a daemon that runs already asks as soon as it sees us.
  loadSettings();
  tellCompanionSettings();
  for (const SeenApp& app : surroundings_.seenApps.apps()) {
    settings_.noteApp(app.identifier);
  }
  registerMessages();
  return center_->runServer();
}

void Companion::registerMessages() {
  center_->registerForMessageNameWithReply(
      "getPrefsDict", [this](std::string_view, const Dictionary&) { return answerPrefs(); });
  center_->registerForMessageNameWithReply("appInfo", [this](std::string_view, const Dictionary&) {
    return Dictionary{{"MiFitBasePath", miFitPath_}};
  });
  center_->registerForMessageName(
      "alertUser",
      [this](std::string_view, const Dictionary& userInfo) { showUserAlert(userInfo); });
  center_->registerForMessageNameWithLaterReply(
      "writeHeartRate",
      [this](std::string_view, const Dictionary& userInfo, platform::MessageCenter::Reply reply) {
        storeHeartRate(userInfo, std::move(reply));
      });
  center_->registerForMessageName("buttonPressed", [this](std::string_view, const Dictionary&) {
    surroundings_.button.buttonPressed();
  });
}

void Companion::introduceToDaemon() {
  knownPrefs_.clear();
  sendDoNotDisturb();
  postLockState();
  daemonCenter_->sendMessageName("letUsStart");
  isIntroduced_ = true;
  outbox_.resume();
}

void Companion::daemonGone() {
  isIntroduced_ = false;
  outbox_.hold();
}

void Companion::doNotDisturbChanged() {
  if (isIntroduced_ && surroundings_.doNotDisturb.isActive() != toldDoNotDisturb_) {
    sendDoNotDisturb();
  }
}

void Companion::sendDoNotDisturb() {
  toldDoNotDisturb_ = surroundings_.doNotDisturb.isActive();
  daemonCenter_->sendMessageName("DND", {{"DNDEnabled", toldDoNotDisturb_}});
}

void Companion::lockChanged() {
  if (isIntroduced_ && surroundings_.lock.isLocked() != toldLocked_) {
    postLockState();
  }
}

void Companion::postLockState() {
  toldLocked_ = surroundings_.lock.isLocked();
  if (toldLocked_) {
    surroundings_.darwinNotifyCenter.post(kLockComplete);
  }
  surroundings_.darwinNotifyCenter.post(kLockState);
}

void Companion::tellCompanionSettings() {
  if (settingsCallback_) {
    settingsCallback_(settings_.companionSettings());
  }
}

std::vector<std::string_view> Companion::loadSettings() {
  const std::string before = settings_.problem();
  auto changes = settings_.load();
  if (!settings_.problem().empty() && settings_.problem() != before) {
    surroundings_.userAlerts.present("Your settings have an error",
                                     settings_.problem() + "\n\nThe last good ones stay in force.");
  }
  return changes;
}

void Companion::settingsFileChanged() {
  const settings::CompanionSettings before = settings_.companionSettings();
  for (const std::string_view name : loadSettings()) {
    surroundings_.darwinNotifyCenter.post(name);
  }
  if (settings_.companionSettings() != before) {
    tellCompanionSettings();
  }
}

void Companion::appNotified(const AppNotification& notification) {
  endAlarms(alarms_.replacedBy(notification));
  if (!filter_.passes(notification)) {
    alarms_.shownAgain(notification);
    return;
  }
  surroundings_.bandWork.bandHasWork();
  const std::string sectionID = sectionOf(notification);
  settings_.noteApp(sectionID);
  const auto ticket = outbox_.add(sectionID, bulletinUserInfo(notification));
  if (notification.alarm == AlarmPhase::ringing) {
    alarms_.alerted(notification, ticket);
  }
  surroundings_.seenApps.noted(sectionID, notification.appName);
}

void Companion::notificationRenamed(const std::string& handle, const std::string& other) {
  alarms_.renamed(handle, other);
}

void Companion::notificationEnded(const std::string& handle) { endAlarms(alarms_.ended(handle)); }

void Companion::endAlarms(const AlarmWatch::Tickets& tickets) {
  for (const auto ticket : tickets) {
    if (outbox_.takeBack(ticket)) {
      daemonCenter_->sendMessageName("stopVibration");
    }
  }
}

void Companion::announceSettingsOf(const std::string& sectionID) {
  const std::string key = settings::iconKey(sectionID);
  Dictionary prefs = settings_.prefs();
  if (prefs.contains(key) && !knownPrefs_.contains(key)) {
    knownPrefs_ = std::move(prefs);
    surroundings_.darwinNotifyCenter.post(settings::notificationName(settings::Announcement::hk));
  }
}

Dictionary Companion::answerPrefs() {
  knownPrefs_ = settings_.prefs();
  return knownPrefs_;
}

void Companion::showUserAlert(const Dictionary& userInfo) {
  const auto title = platform::textForKey(userInfo, "title");
  const auto message = platform::textForKey(userInfo, "message");
  if (!title && !message) {
    logger_.warning("An alert for the user without a title and a message was dropped");
    return;
  }
  surroundings_.userAlerts.present(title.value_or(""), message.value_or(""));
}

void Companion::storeHeartRate(const Dictionary& userInfo, platform::MessageCenter::Reply reply) {
  const auto* value = platform::find(userInfo, "heartRate");
  const auto* heartRate = value == nullptr ? nullptr : std::get_if<std::int64_t>(&value->variant());
  if (heartRate == nullptr) {
    logger_.warning("A writeHeartRate without a number \"heartRate\" was dropped");
    reply(platform::Error{EINVAL, "\"heartRate\" has to be an integer"});
    return;
  }
  surroundings_.healthKit.writeHeartRate(*heartRate, [this, reply = std::move(reply)](
                                                         const platform::ErrorOrNone& error) {
    reply(error ? platform::Result<Dictionary>(*error) : Dictionary());
    if (error && (error->code == ERANGE || error->code == EBUSY)) {
      return;  // its sender's fault: no heart rate, or too many at once
    }
    // Once for each time that it begins to fail: a measurement every few minutes would nag.
    if (!std::exchange(isStoreFailureShown_, error.has_value()) && error) {
      surroundings_.userAlerts.present("Heart rates are not stored", error->localizedDescription);
    }
  });
}

}  // namespace wrixel2::companion
