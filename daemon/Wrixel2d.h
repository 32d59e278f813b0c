#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/ClockKeeper.h"
#include "daemon/DaemonState.h"
#include "daemon/ForwardingRules.h"
#include "daemon/Intake.h"
#include "daemon/MeasurementScheduler.h"
#include "daemon/ShellCompanion.h"
#include "daemon/StatusObject.h"
#include "platform/Log.h"
#include "platform/Platform.h"
#include "platform/Result.h"

namespace wrixel2::daemon {

/// The controller: takes what happens on the phone, decides by the settings what of it concerns the
/// band, and brings the band service up and down.
///
/// The band service starts with the shell companion's "letUsStart", the first unlock, or a change
/// of the preferences; until then the band is left alone.
class Wrixel2d : public std::enable_shared_from_this<Wrixel2d> {
 public:
  /// Called once, at the first start of the band service.
  using MiBandFactory = std::function<std::unique_ptr<mbble::MiBand>()>;

  /// The process's controller, made by the first call; later ones ignore what they are given. It
  /// lives as long as somebody holds it.
  static platform::Result<std::shared_ptr<Wrixel2d>> sharedManager(
      const platform::Platform& platform, MiBandFactory makeBand);
  /// A controller of the caller's own. Fails when another program serves the daemon's center.
  static platform::Result<std::shared_ptr<Wrixel2d>> create(const platform::Platform& platform,
                                                            MiBandFactory makeBand);

  Wrixel2d(const Wrixel2d&) = delete;
  Wrixel2d& operator=(const Wrixel2d&) = delete;

  const DaemonState& state() const { return state_; }
  const MeasurementScheduler& scheduler() const { return scheduler_; }

  /// Asks for the end of the links to the band, as the last thing before the process ends.
  void endLinks();

 private:
  Wrixel2d(const platform::Platform& platform, MiBandFactory makeBand);

  platform::ErrorOrNone init();
  platform::ErrorOrNone registerForNotifications();
  void addDarwinObservers();
  void addDistributedObservers();
  void observe(std::string_view name, platform::SuspensionBehavior behavior,
               void (Wrixel2d::*handler)());
  /// The same for what has one effect however often it is posted: at most once a second.
  void observeRequest(std::string_view name, platform::SuspensionBehavior behavior,
                      void (Wrixel2d::*handler)());

  void handleBulletinRequest(const platform::Dictionary& userInfo);
  void handleStopVibrationRequest(const platform::Dictionary& userInfo);
  void handleDndChange(const platform::Dictionary& userInfo);
  void handleVibrationTesting(const platform::Dictionary& userInfo);
  void handlePhonecall(const platform::Dictionary& userInfo);

  /// Settings as they were told; none where nobody tells them, and those in force stay.
  using SettingsHandler = void (Wrixel2d::*)(const platform::Dictionary* settings);

  void startBySettings(const platform::Dictionary* settings);
  void reloadSettings(const platform::Dictionary* settings);
  void reloadMoveSettings(const platform::Dictionary* settings);
  void hrIntervalChanged(const platform::Dictionary* settings);
  void continuousHrChanged(const platform::Dictionary* settings);
  void stopwatchChanged(const platform::Dictionary* settings);
  void actOnSettings(std::string_view name, SettingsHandler handler);
  void measureOnDemand();
  void lockComplete();
  void lockStateChanged();
  void lockToCurrentBand();
  void syncClock();
  void keyChanged();
  void removeBandLock();

  void applyEnabledState();
  void startBandService();
  void pathFound(const std::optional<std::string>& path);
  void applyConnectedMode();
  void notifyBand(const BandAlert& alert);
  void updateStatus();
  std::string problem() const;

  const platform::Platform& platform_;
  platform::Logger logger_;
  MiBandFactory makeBand_;
  DaemonState state_;
  ForwardingHistory history_;
  ShellCompanion companion_;
  Intake intake_;
  std::unique_ptr<platform::PendingAnswer> pathQuestion_;
  MeasurementScheduler scheduler_;
  ClockKeeper clockKeeper_;
  std::unique_ptr<platform::MessageCenter> center_;
  std::unique_ptr<StatusObject> status_;
  std::vector<std::unique_ptr<platform::Observation>> observations_;
};

}  // namespace wrixel2::daemon
