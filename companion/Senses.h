#pragma once

#include <memory>

#include "companion/ButtonActions.h"
#include "companion/CallMonitor.h"
#include "companion/DetachedCommands.h"
#include "companion/GnomeCallsSource.h"
#include "companion/LogindLock.h"
#include "companion/LogindSleepInhibitor.h"
#include "companion/LowBatteryAlert.h"
#include "companion/ModemManagerCallSource.h"
#include "companion/MprisPlayers.h"
#include "companion/OfonoCallSource.h"
#include "companion/SleepHold.h"
#include "platform/MessageCenter.h"
#include "platform/linux/PropertyWatch.h"
#include "platform/linux/SystemBus.h"

namespace wrixel2::companion {

/// What the companion perceives besides notifications, and what follows from it: calls, presses of
/// the button, a low battery, the phone about to sleep.
///
/// Services and even the system bus may be missing or come later: each part works with what is
/// there.
class Senses final : private platform::linux::SystemBusObserver {
 public:
  /// What the senses work with; all of it outlives them.
  struct Surroundings {
    platform::linux::LinuxRunLoop& loop;
    const platform::Clock& clock;
    platform::Log& log;
    platform::linux::BusConnection& sessionBus;
    platform::MessageCenters& messageCenters;
    UserAlertPresenter& userAlerts;
    platform::UserDefaults& defaults;
    LogindLock& logindLock;
  };

  explicit Senses(const Surroundings& surroundings);

  /// The first call comes before the loop runs.
  void setSettings(const settings::CompanionSettings& settings);
  /// The daemon has been told to start.
  void daemonIsReady() { calls_.daemonIsReady(); }

  ButtonPresses& button() { return button_; }
  BandWork& bandWork() { return sleep_; }

 private:
  platform::ErrorOrNone busConnected(platform::linux::BusConnection& systemBus) override;
  void busUnavailable(const platform::Error& error) override;
  void daemonStatusIs(const platform::linux::PropertyWatch::Properties& status);

  platform::linux::LinuxRunLoop& loop_;
  platform::Log& log_;
  platform::Logger logger_;
  std::unique_ptr<platform::MessageCenter> daemon_;
  LogindLock& logindLock_;
  LogindSleepInhibitor inhibitor_;
  SleepHold sleep_;
  GnomeCallsSource gnomeCalls_;
  CallMonitor calls_;
  std::unique_ptr<ModemManagerCallSource> modemManager_;
  std::unique_ptr<OfonoCallSource> ofono_;
  DetachedCommands commands_;
  MprisPlayers players_;
  ButtonActions button_;
  LowBatteryAlert lowBattery_;
  platform::linux::PropertyWatch daemonStatus_;
  bool isBusLossLogged_ = false;
  platform::linux::SystemBus systemBus_;
};

}  // namespace wrixel2::companion
