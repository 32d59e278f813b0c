#include "companion/Senses.h"

#include <algorithm>
#include <utility>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

using platform::linux::PropertyWatch;
using settings::ButtonAction;

constexpr std::string_view kDaemonCenterName = "org.corvale.wrixel2dIpc";

}  // namespace

Senses::Senses(const Surroundings& surroundings)
    : loop_(surroundings.loop),
      log_(surroundings.log),
      logger_(surroundings.log, "Senses"),
      daemon_(surroundings.messageCenters.centerNamed(kDaemonCenterName)),
      logindLock_(surroundings.logindLock),
      inhibitor_(surroundings.log),
      sleep_(loop_, inhibitor_),
      gnomeCalls_(surroundings.sessionBus, log_),
      calls_(loop_, surroundings.clock, *daemon_, sleep_),
      commands_(loop_, log_),
      players_(surroundings.sessionBus, log_),
      button_(loop_, log_, commands_, players_, calls_),
      lowBattery_(surroundings.userAlerts, surroundings.defaults),
      daemonStatus_(
          surroundings.sessionBus,
          {"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc", "org.corvale.wrixel2d.Status"},
          [this](const PropertyWatch::Properties& status) { daemonStatusIs(status); }),
      systemBus_(loop_, *this) {
  calls_.addPreferredSource(gnomeCalls_);
  systemBus_.start();
}

void Senses::setSettings(const settings::CompanionSettings& settings) {
  lowBattery_.setThreshold(settings.lowBattery);
  button_.setSettings(settings);
  players_.setFollowing(std::ranges::any_of(settings.buttonActions, [](const ButtonAction& action) {
    return action.kind == ButtonAction::Kind::playPause;
  }));
}

void Senses::daemonStatusIs(const PropertyWatch::Properties& status) {
  sleep_.daemonStateIs(status ? platform::textForKey(*status, "State").value_or("") : "");
  if (status) {
    lowBattery_.levelIs(platform::intForKey(*status, "Battery"));
  }
}

platform::ErrorOrNone Senses::busConnected(platform::linux::BusConnection& systemBus) {
  isBusLossLogged_ = false;
  logindLock_.busFound(systemBus);
  inhibitor_.busFound(systemBus);
  modemManager_ = std::make_unique<ModemManagerCallSource>(systemBus, log_);
  ofono_ = std::make_unique<OfonoCallSource>(systemBus, log_);
  calls_.addSource(*modemManager_);
  calls_.addSource(*ofono_);
  return std::nullopt;
}

void Senses::busUnavailable(const platform::Error& error) {
  if (!std::exchange(isBusLossLogged_, true)) {
    logger_.warning("Without the system bus neither calls of the modem nor logind are seen: " +
                    description(error));
  }
  logindLock_.busLost();
  inhibitor_.busLost();
  if (modemManager_ != nullptr) {
    calls_.removeSource(*modemManager_);
    calls_.removeSource(*ofono_);
  }
  modemManager_.reset();
  ofono_.reset();
}

}  // namespace wrixel2::companion
