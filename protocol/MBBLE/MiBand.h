#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/Platform.h"

namespace wrixel2::mbmodel {
class MBVibrateModel;
}

namespace wrixel2::mbservices {
class KeyProvider;
}

namespace wrixel2::mbble {

class MBCentralManager;

/// The one object through which the daemon drives the band.
class MiBand : public platform::CentralManagerDelegate {
 public:
  /// Drives the process's session manager, which the first one made brings into being. The key
  /// provider outlives the process's session manager.
  MiBand(const platform::Platform& platform, mbservices::KeyProvider& keyProvider);
  /// Drives a session manager of the caller's.
  MiBand(const platform::Platform& platform, std::shared_ptr<MBCentralManager> manager);
  MiBand(const MiBand&) = delete;
  MiBand& operator=(const MiBand&) = delete;
  ~MiBand() override;

  const std::shared_ptr<MBCentralManager>& manager() const { return manager_; }
  /// The last alert handed to the session manager.
  const std::shared_ptr<mbmodel::MBVibrateModel>& mode() const { return mode_; }

  /// Shows an alert (see MBVibrateModel for the numbers). Icon 0 is the switch of an app whose
  /// owner wants nothing of it on the band: nothing happens.
  void notifyMiWithRepeat(std::uint64_t repeat, std::uint64_t icon, std::uint64_t pattern,
                          std::optional<std::string> text);
  void stopVibration();

  /// 0 silent, 1 with a buzz before it, 2 continuous, 3 the same as before.
  void sendHeartRequestWithMode(std::int64_t mode);
  /// Answered by the distributed notification "org.corvale.wrixel2.steps".
  void requestSteps();
  void getBatteryInfo();
  /// Sets the band's clock; today 00:00:01 starts its stopwatch, any other date ends it.
  void setDateTime(platform::Date date);
  /// Sets the band's clock to the present, plainly.
  void syncClock();
  /// Connects the band anew, for a pairing key that has changed.
  void authenticateAnew();

  void scanForMi();
  /// Kept for the interface; see the session manager's.
  void pairMi();
  void requestHkAuthorization();
  void disconnectMi();
  void watchdogDisconnect();
  /// Disconnects after so many seconds; replaces the watchdog that was running.
  void kickWatchdogWithTime(double seconds);

  void connectedMode(bool on);
  void lockToMac();
  void removeLock();

 private:
  const platform::Platform& platform_;
  /// Owns nothing: expires with this object, which its owner holds in whatever way it likes, so
  /// that delayed work and the session manager can hold it weakly.
  std::shared_ptr<MiBand> self_;
  std::shared_ptr<MBCentralManager> manager_;
  std::shared_ptr<mbmodel::MBVibrateModel> mode_;
  std::unique_ptr<platform::Timer> watchdogTimer_;
};

}  // namespace wrixel2::mbble
