#include "daemon/Wrixel2d.h"

#include <chrono>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"
#include "daemon/InfoPlistPatch.h"
#include "daemon/MoveWindow.h"
#include "daemon/RateLimit.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBPeripheral.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"

namespace wrixel2::daemon {

namespace {

/// From this version on the shell needs the usage descriptions in its Info.plist.
constexpr float kVersionWithUsageDescriptions = 10.0F;
constexpr std::uint64_t kConnectedUnlessDoNotDisturb = 2;
/// Between two of what reaches the disk or the band.
constexpr platform::TimeInterval kRequestPause = platform::seconds(1);
constexpr std::string_view kLockComplete = "com.apple.springboard.lockcomplete";
constexpr std::string_view kLockState = "com.apple.springboard.lockstate";

/// The leading number: "10.3.1" is 10.3, a text without one 0. The C locale is in force.
float versionNumber(const std::string& version) { return std::strtof(version.c_str(), nullptr); }

std::string_view nameOfVerdict(mbservices::AuthVerdict verdict) {
  switch (verdict) {
    case mbservices::AuthVerdict::none:
      return "";
    case mbservices::AuthVerdict::accepted:
      return "accepted";
    case mbservices::AuthVerdict::refused:
      return "refused";
  }
  return "";
}

std::string_view nameOfState(mbble::SessionState state) {
  switch (state) {
    case mbble::SessionState::poweredOff:
      return "off";
    case mbble::SessionState::idle:
      return "idle";
    case mbble::SessionState::connecting:
      return "connecting";
    case mbble::SessionState::connected:
      return "connected";
    case mbble::SessionState::scanning:
    case mbble::SessionState::scanResult:
      return "scanning";
  }
  return "off";
}

std::int64_t unixSeconds(const std::optional<platform::Date>& date) {
  return date ? std::chrono::floor<std::chrono::seconds>(*date).time_since_epoch().count() : 0;
}

}  // namespace

platform::Result<std::shared_ptr<Wrixel2d>> Wrixel2d::sharedManager(
    const platform::Platform& platform, MiBandFactory makeBand) {
  // Held weakly: what the controller holds on to must go before the platform does.
  static std::weak_ptr<Wrixel2d> shared;
  if (auto existing = shared.lock()) {
    return existing;
  }
  auto made = create(platform, std::move(makeBand));
  if (made) {
    shared = *made;
  }
  return made;
}

platform::Result<std::shared_ptr<Wrixel2d>> Wrixel2d::create(const platform::Platform& platform,
                                                             MiBandFactory makeBand) {
  std::shared_ptr<Wrixel2d> daemon(new Wrixel2d(platform, std::move(makeBand)));
  if (auto error = daemon->init()) {
    return std::move(*error);
  }
  return daemon;
}

Wrixel2d::Wrixel2d(const platform::Platform& platform, MiBandFactory makeBand)
    : platform_(platform),
      logger_(platform.log, "main"),
      makeBand_(std::move(makeBand)),
      companion_(platform.messageCenters, logger_),
      intake_(platform.runLoop, companion_, platform.log, [this] { updateStatus(); }),
      scheduler_(platform, logger_, state_, companion_, [this] { updateStatus(); }),
      clockKeeper_(platform, [this] { syncClock(); }) {}

platform::ErrorOrNone Wrixel2d::init() {
  if (auto error = registerForNotifications()) {
    return error;
  }
  const auto& version = platform_.systemInfo.systemVersion;
  logger_.info(fmt::format("Starting Wrixel2d on iOS version: {}", version));
  if (versionNumber(version) >= kVersionWithUsageDescriptions) {
    patchInfoPlist(platform_, logger_);
  }
  addDarwinObservers();
  addDistributedObservers();
  status_ = std::make_unique<StatusObject>(platform_, logger_);
  updateStatus();
  platform_.serviceManager.notifyReady();
  return std::nullopt;
}

platform::ErrorOrNone Wrixel2d::registerForNotifications() {
  center_ = platform_.messageCenters.centerNamed("org.corvale.wrixel2dIpc");
  if (auto error = center_->runServer()) {
    return error;
  }
  using Handler = void (Wrixel2d::*)(const platform::Dictionary&);
  const auto serve = [this](std::string_view message, Handler handler) {
    const Intake::Work work = [this, handler](const platform::Dictionary& userInfo) {
      (this->*handler)(userInfo);
    };
    center_->registerForMessageName(
        message, [this, work](std::string_view, const platform::Dictionary& userInfo) {
          intake_.act(userInfo, work);
        });
  };
  serve("bulletinRequest", &Wrixel2d::handleBulletinRequest);
  serve("stopVibration", &Wrixel2d::handleStopVibrationRequest);
  serve("DND", &Wrixel2d::handleDndChange);
  serve("appChanged", &Wrixel2d::handleVibrationTesting);
  serve("phoneCall", &Wrixel2d::handlePhonecall);
  center_->registerForMessageName("letUsStart",
                                  [this](std::string_view name, const platform::Dictionary&) {
                                    actOnSettings(name, &Wrixel2d::startBySettings);
                                  });
  return std::nullopt;
}

void Wrixel2d::addDarwinObservers() {
  using platform::SuspensionBehavior;
  const auto preferences = [this](const char* suffix, SettingsHandler handler) {
    observations_.push_back(platform_.darwinNotifyCenter.addObserver(
        std::string("org.corvale.wrixel2prefs.preferencechanged").append(suffix),
        SuspensionBehavior::coalesce,
        [this, handler](std::string_view name) { actOnSettings(name, handler); }));
  };
  preferences("", &Wrixel2d::startBySettings);
  preferences("/hk", &Wrixel2d::reloadSettings);
  observeRequest("org.corvale.wrixel2prefs.preferencechanged/measure", SuspensionBehavior::coalesce,
                 &Wrixel2d::measureOnDemand);
  preferences("/hkInterval", &Wrixel2d::hrIntervalChanged);
  preferences("/move", &Wrixel2d::reloadMoveSettings);
  preferences("/continuous", &Wrixel2d::continuousHrChanged);
  preferences("/stopwatchChanged", &Wrixel2d::stopwatchChanged);

  observe(kLockComplete, SuspensionBehavior::deliverImmediately, &Wrixel2d::lockComplete);
  observe(kLockState, SuspensionBehavior::deliverImmediately, &Wrixel2d::lockStateChanged);
  const auto request = [this](std::string_view name, void (Wrixel2d::*handler)()) {
    observeRequest(name, SuspensionBehavior::deliverImmediately, handler);
  };
  request("org.corvale.wrixel2.lockToCurrentBand", &Wrixel2d::lockToCurrentBand);
  request("org.corvale.wrixel2.removeLock", &Wrixel2d::removeBandLock);
  // For the owner's other programs.
  request("org.corvale.wrixel2.syncClock", &Wrixel2d::syncClock);
  request("org.corvale.wrixel2.keyChanged", &Wrixel2d::keyChanged);
}

void Wrixel2d::observe(std::string_view name, platform::SuspensionBehavior behavior,
                       void (Wrixel2d::*handler)()) {
  const Intake::Work work = [this, handler](const platform::Dictionary&) { (this->*handler)(); };
  observations_.push_back(platform_.darwinNotifyCenter.addObserver(
      name, behavior, [this, work](std::string_view) { intake_.act({}, work); }));
}

void Wrixel2d::observeRequest(std::string_view name, platform::SuspensionBehavior behavior,
                              void (Wrixel2d::*handler)()) {
  const Intake::Work work = [this, handler](const platform::Dictionary&) { (this->*handler)(); };
  const auto limit = std::make_shared<RateLimit>(platform_.runLoop, kRequestPause,
                                                 [this, work] { intake_.act({}, work); });
  observations_.push_back(platform_.darwinNotifyCenter.addObserver(
      name, behavior, [limit](std::string_view) { limit->ask(); }));
}

void Wrixel2d::actOnSettings(std::string_view name, SettingsHandler handler) {
  intake_.actOnSettings(
      name, [this, handler](const platform::Dictionary* settings) { (this->*handler)(settings); });
}

void Wrixel2d::addDistributedObservers() {
  using Handler = void (MeasurementScheduler::*)(const platform::Dictionary&);
  const auto observe = [this](std::string_view name, Handler handler) {
    observations_.push_back(platform_.distributedNotificationCenter.addObserver(
        name, [this, handler](const platform::Notification& notification) {
          (scheduler_.*handler)(notification.userInfo);
        }));
  };
  observe("org.corvale.wrixel2.measure", &MeasurementScheduler::measureHrNotification);
  observe("org.corvale.wrixel2.steps", &MeasurementScheduler::measureStepsNotification);
  observe("org.corvale.wrixel2.stopwatch", &MeasurementScheduler::stopWatchStop);
  // The band's session observes these, at times; at others a posting of theirs is no error.
  for (const auto name :
       {mbble::MBCentralManager::kCapabilityRequest, mbble::MBPeripheral::kDeviceUnlocked}) {
    observations_.push_back(platform_.distributedNotificationCenter.addObserver(
        name, [](const platform::Notification&) {}));
  }
}

// Messages of the shell companion ----------------------------------------------------------------

void Wrixel2d::handleBulletinRequest(const platform::Dictionary& userInfo) {
  const CheckedDictionary entries(userInfo, "bulletinRequest", logger_);
  auto sectionID = entries.identifier("sectionID");
  if (!sectionID) {
    logger_.byFile().warning("Dropping a bulletinRequest without sectionID");
    return;
  }
  const Bulletin bulletin{.sectionID = std::move(*sectionID),
                          .title = entries.text("title"),
                          .message = entries.text("message").value_or(""),
                          .sender = entries.identifier("sender")};
  const auto now = platform_.clock.monotonicNow();
  const auto decision = decideForwarding(
      bulletin, state_.settings,
      {.dndActive = state_.dndActive, .deviceLocked = state_.deviceLocked, .now = now}, history_,
      logger_);
  if (decision.rule == ForwardingRule::enhancedAlarm) {
    logger_.info("Triggering an alarm in an enhanced mode ...");
  } else if (decision.rule == ForwardingRule::forward) {
    if (state_.settings.doNotAnnoy) {
      remember(history_, bulletin.sectionID, MsgInfo(bulletin.sender, platform_.clock.now(), now),
               state_.settings);
    }
    logger_.info(fmt::format("#Forwaring: {}", bulletin.sectionID));
  } else {
    logger_.byFile().info(
        fmt::format("Not forwarding {}: {}", bulletin.sectionID, reasonOf(decision.rule)));
  }
  if (decision.alert) {
    notifyBand(*decision.alert);
  }
}

void Wrixel2d::handleStopVibrationRequest(const platform::Dictionary&) {
  if (state_.band) {
    state_.band->stopVibration();
  }
}

void Wrixel2d::handleDndChange(const platform::Dictionary& userInfo) {
  state_.dndActive =
      CheckedDictionary(userInfo, "DND", logger_).boolean("DNDEnabled").value_or(false);
  applyConnectedMode();
}

void Wrixel2d::handleVibrationTesting(const platform::Dictionary& userInfo) {
  const auto app = CheckedDictionary(userInfo, "appChanged", logger_).identifier("appInfo");
  if (!app) {
    logger_.byFile().warning("Ignoring an appChanged without appInfo");
    return;
  }
  notifyBand(alertOfApp(state_.settings, *app, "Sender:SomeText", logger_));
}

void Wrixel2d::handlePhonecall(const platform::Dictionary& userInfo) {
  if (!state_.settings.enabled || state_.isQuiet()) {
    return;
  }
  const CheckedDictionary entries(userInfo, "phoneCall", logger_);
  if (entries.contains("newCall")) {
    notifyBand(callAlert(entries.text("text")));
  } else if (entries.contains("callHanged") && state_.band) {
    state_.band->stopVibration();
  }
}

void Wrixel2d::notifyBand(const BandAlert& alert) {
  if (state_.band) {
    state_.band->notifyMiWithRepeat(alert.repeat, alert.icon, alert.pattern, alert.text);
  }
}

// Settings ---------------------------------------------------------------------------------------

void Wrixel2d::startBySettings(const platform::Dictionary* settings) {
  reloadSettings(settings);
  applyEnabledState();
}

void Wrixel2d::reloadSettings(const platform::Dictionary* settings) {
  if (settings != nullptr) {
    state_.settings = Settings::fromDictionary(*settings, logger_);
  }
}

void Wrixel2d::reloadMoveSettings(const platform::Dictionary* settings) {
  // The other values stay as they are until everything is read again.
  auto& inForce = state_.settings;
  const auto old = inForce.move;
  if (settings != nullptr) {
    inForce.snapshot = *settings;
    inForce.move = MoveSettings::fromDictionary(inForce.snapshot, logger_);
  }
  const auto fault = moveWindowFault(inForce.move);
  if (fault != MoveWindowFault::none) {
    logger_.error(invalidStepConfiguration(inForce.move));
    companion_.alertUser("Invalid Move Reminder configuration!",
                         fault == MoveWindowFault::sameHours
                             ? "'Remind From' and 'Remind Till' shouldn't be the same."
                             : "'Remind Period' value exceeds Move Reminder time slot.");
  }
  // Also with a faulty window: the scheduler refuses it, and the old one no longer counts.
  scheduler_.moveSettingsChanged(old);
}

void Wrixel2d::hrIntervalChanged(const platform::Dictionary* settings) {
  reloadSettings(settings);
  scheduler_.hrIntervalChanged();
}

void Wrixel2d::continuousHrChanged(const platform::Dictionary* settings) {
  reloadSettings(settings);
  scheduler_.continuousHrChanged();
}

void Wrixel2d::stopwatchChanged(const platform::Dictionary* settings) {
  reloadSettings(settings);
  scheduler_.stopwatchChanged();
}

void Wrixel2d::measureOnDemand() { scheduler_.measureOnDemand(); }

// The band service -------------------------------------------------------------------------------

void Wrixel2d::applyEnabledState() {
  if (!state_.settings.enabled) {
    scheduler_.stop();
    if (state_.band) {
      state_.band->disconnectMi();
    }
    state_.started = false;
    updateStatus();
    return;
  }
  if (!state_.started) {
    startBandService();
    updateStatus();
  }
  applyConnectedMode();
}

void Wrixel2d::startBandService() {
  if (!state_.band) {
    state_.band = makeBand_();
    state_.band->manager()->setStatusObserver([weak = weak_from_this()] {
      if (const auto self = weak.lock()) {
        self->updateStatus();
      }
    });
  }
  state_.started = true;
  scheduler_.start();
  pathQuestion_ = companion_.askForMiFitBasePath(
      [this](const std::optional<std::string>& path) { pathFound(path); });
}

void Wrixel2d::pathFound(const std::optional<std::string>& path) {
  logger_.info(fmt::format("path: {}", platform::description(path)));
  if (!path || path->empty()) {
    companion_.alertUser(
        "Wrixel2 warning",
        "MiFit app not found. Please install it and log in. It's needed to fetch some MiBand2 "
        "config data. You don't have to use it, but it should be installed in order to use the "
        "tweak.");
  }
}

void Wrixel2d::applyConnectedMode() {
  const auto mode = state_.settings.connectedMode;
  const bool isOn = mode == kConnectedUnlessDoNotDisturb ? !state_.dndActive : mode != 0;
  if (state_.band) {
    state_.band->connectedMode(isOn);
  }
}

void Wrixel2d::endLinks() {
  if (state_.band) {
    state_.band->disconnectMi();
  }
}

// Lock tracking ----------------------------------------------------------------------------------
// "lockcomplete" comes only when the phone locks; "lockstate" when it locks (after that) and when
// it unlocks.

void Wrixel2d::lockComplete() {
  state_.deviceLocked = true;
  state_.lockCompleteSeen = true;
}

void Wrixel2d::lockStateChanged() {
  if (std::exchange(state_.lockCompleteSeen, false)) {
    return;
  }
  state_.deviceLocked = false;
  if (!state_.started) {
    actOnSettings(kLockState, &Wrixel2d::startBySettings);
  }
}

void Wrixel2d::lockToCurrentBand() {
  if (state_.band) {
    state_.band->lockToMac();
  }
}

void Wrixel2d::removeBandLock() {
  if (state_.band) {
    state_.band->removeLock();
  }
}

// Clock and key ----------------------------------------------------------------------------------

void Wrixel2d::syncClock() {
  if (!state_.band || !state_.started) {
    return;
  }
  if (state_.settings.stopwatchSwitch) {
    logger_.byFile().info("The band's clock is left alone: the stopwatch runs on it");
    return;
  }
  state_.band->syncClock();
}

void Wrixel2d::keyChanged() {
  if (state_.band && state_.started) {
    state_.band->authenticateAnew();
  }
}

// Status -----------------------------------------------------------------------------------------

void Wrixel2d::updateStatus() {
  if (!status_) {
    return;
  }
  DaemonStatus status;
  status.problem = problem();
  status.nextMeasurement = unixSeconds(scheduler_.nextMeasurement());
  status.nextStepCheck = unixSeconds(scheduler_.nextStepReading());
  if (state_.band) {
    const auto& manager = *state_.band->manager();
    status.state = nameOfState(manager.state());
    status.lockedTo = manager.macToLock();
    status.authentication = nameOfVerdict(manager.authVerdict());
    if (const auto band =
            std::static_pointer_cast<mbble::MBPeripheral>(manager.peripheralAtIndex(0))) {
      status.band = band->mac();
      status.initialized = band->isInitialized();
      status.battery =
          band->batteryInfo() ? static_cast<std::uint8_t>(band->batteryInfo()->level()) : 0;
      status.steps = band->activity() ? static_cast<std::uint32_t>(band->activity()->steps()) : 0;
    }
  }
  status_->setStatus(std::move(status));
}

std::string Wrixel2d::problem() const {
  if (auto unanswered = intake_.problem(); !unanswered.empty()) {
    return unanswered;
  }
  if (!state_.band) {
    return "Waiting for the shell companion (wrixel2-companion) to say that it is ready";
  }
  if (!state_.settings.enabled) {
    return "Switched off in the settings (enabled = false)";
  }
  return state_.band->manager()->manager().problem();
}

}  // namespace wrixel2::daemon
