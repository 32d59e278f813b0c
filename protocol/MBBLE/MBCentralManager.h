#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Log.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"
#include "protocol/BleObjects/YMSCBStoredPeripherals.h"
#include "protocol/MBBLE/Services/AuthState.h"
#include "protocol/MBBLE/Services/SessionManager.h"

namespace wrixel2::mbservices {
class KeyProvider;
}

namespace wrixel2::mbble {

class MBHealthKitManager;
class MBPeripheral;

/// Where the session stands. A report only: nothing but poweredOff makes a request be dropped.
enum class SessionState : std::int64_t {
  poweredOff = 0,
  idle = 1,
  connecting = 2,
  connected = 3,  ///< a band is set up; or one was found and is about to be connected
  scanning = 4,
  scanResult = 5
};

/// Keeps the session with the band: finds it, connects it, serves what was asked for, and lets it
/// go again after a while, so that neither battery pays for an idle link.
///
/// A request raises a flag and is served at once on a band that is set up; else after the
/// connection it starts. Everything is called, and calls back, on the main queue.
class MBCentralManager final : public bleobjects::YMSCBCentralManager,
                               public mbservices::SessionManager {
 public:
  /// What a completion of a scan gets: the band found and its signal strength in dBm, or an error.
  using ScanCallback =
      platform::UniqueFunction<void(const std::shared_ptr<MBPeripheral>& peripheral,
                                    std::optional<int> rssi, const platform::ErrorOrNone& error)>;

  /// The distributed notification that is observed while the radio is on.
  static constexpr std::string_view kCapabilityRequest = "org.corvale.wrixel2.capReq";

  /// Makes the process's manager on the first call; later calls return that one and ignore what
  /// they are given. The key provider outlives it, which lives as long as the process.
  static std::shared_ptr<MBCentralManager> initSharedManagerWithDelegate(
      const platform::Platform& platform, mbservices::KeyProvider& keyProvider,
      std::weak_ptr<platform::CentralManagerDelegate> delegate);
  /// The process's manager; none, with an error in the platform's log, before it was made.
  static std::shared_ptr<MBCentralManager> sharedManager(const platform::Platform& platform);

  /// A manager of the caller's own. Starts with the radio: the first band is looked for two seconds
  /// after it is powered on.
  static std::shared_ptr<MBCentralManager> create(
      const platform::Platform& platform, mbservices::KeyProvider& keyProvider,
      const MBHealthKitManager& healthKitManager,
      std::weak_ptr<platform::CentralManagerDelegate> delegate);

  ~MBCentralManager() override;

  /// Called, queued and at most once a turn, after the state, the bands, what is known of one
  /// (set up, battery, activity) or the lock may have changed.
  void setStatusObserver(platform::UniqueFunction<void()> observer);

  // --- Connection lifecycle ---

  SessionState state() const { return state_; }
  void setState(SessionState state);

  /// The bands known, in the order in which they were found. A copy: serving one may change the
  /// list.
  std::vector<std::shared_ptr<MBPeripheral>> bands() const;

  bool isNotificationActive() const { return notificationActive_; }
  bool isStepsActive() const { return stepsActive_; }
  bool isStepExtraTime() const { return stepExtraTime_; }
  bool isHeartRateActive() const { return heartRateActive_; }
  void setHeartRateActive(bool active) override { heartRateActive_ = active; }
  bool isHeartRateRequested() const { return heartRateRequested_; }
  void setHeartRateRequested(bool requested) override { heartRateRequested_ = requested; }
  bool isSetTimeActive() const { return isSetTimeActive_; }
  bool isClockSyncActive() const { return isClockSyncActive_; }
  bool isConnectedMode() const override { return isConnectedMode_; }
  /// Kept for the daemon; the session does not read it.
  bool isContinuousHR() const { return isContinuousHR_; }
  void setIsContinuousHR(bool on) { isContinuousHR_ = on; }
  /// The one band that may be connected, by its MAC address; empty for any.
  const std::string& macToLock() const { return macToLock_; }
  void setMacToLock(std::string mac);
  /// What a band is looked for by.
  const std::vector<platform::UUID>& services() const { return services_; }

  void managerPoweredOnHandler() override;
  void managerPoweredOffHandler() override;
  void managerUnknownHandler() override;
  void managerResettingHandler() override;
  void managerUnauthorizedHandler() override;
  void managerUnsupportedHandler() override;

  /// Connects bands that the phone holds already, else the first that a scan finds. The completion
  /// is called once for every find, when its connecting has only begun; not after a failed scan.
  void initialConnectionRequest(platform::UniqueFunction<void()> completion);
  void initialScanForBandWithBlock(ScanCallback completion);
  /// The band behind the device: the one known already, or a new one if it is of our kind and not
  /// locked out. No advertisement: a device that the phone holds already; its MAC is not known.
  std::shared_ptr<MBPeripheral> handlePeripheral(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const platform::Dictionary* advertisementData);
  void doConnectWithPeripheral(const std::shared_ptr<MBPeripheral>& peripheral);
  /// Serves every request that is waiting, on every band.
  void handleAfterConnect();

  void centralManagerDidConnectPeripheral(
      platform::CentralManager& central,
      const std::shared_ptr<platform::Peripheral>& peripheral) override;
  void centralManagerDidDisconnectPeripheral(
      platform::CentralManager& central, const std::shared_ptr<platform::Peripheral>& peripheral,
      const platform::ErrorOrNone& error) override;

  void centralManagerProblemChanged(platform::CentralManager& central) override;

  /// Gives up every request and lets go of every band.
  void disconnectMi();
  void watchdogDisconnect();
  void kickResetWatchdog();
  /// The interval is in whole seconds.
  void kickResetWatchdogWithInterval(int interval);
  /// On keeps the link up for good; off lets it go after 23 s.
  void connectedMode(bool on);
  /// Pairing is done in the band maker's own program, which leaves its key to us: nothing to do.
  void pairMi() {}
  /// The shell companion stores the samples, and asks for the permission: nothing to do.
  void requestHkAuthorization() {}

  // --- Band requests ---

  void sendAlertToPeripheralsWithMode(
      const std::shared_ptr<mbmodel::MBVibrateModel>& mode) override;
  void checkLeParamsAndSendWith(const std::shared_ptr<mbmodel::MBVibrateModel>& mode,
                                const std::shared_ptr<MBPeripheral>& band);
  /// Sends the alert by the way its icon takes. An alert with text leaves its mode with icon 1.
  void vibrationRequest(const std::shared_ptr<mbmodel::MBVibrateModel>& mode,
                        const std::shared_ptr<MBPeripheral>& band);
  void stopVibration();
  void requestHeartRequestWithMode(std::int64_t mode) override;
  void sendHeartRateRequest(const std::shared_ptr<MBPeripheral>& band, std::int64_t mode);
  void writeHeartRate(std::int64_t value) override;
  void requestSteps();
  void setDateTime(platform::Date date);
  void handleTimeChange(platform::Date date);
  /// Writes the present time to the band, whatever its clock shows; nothing is reported of it.
  void syncClock();
  void getBatteryInfo();

  void authVerdictGiven() override;
  /// What the band said of the pairing key last; a link that ends is no word.
  mbservices::AuthVerdict authVerdict() const { return authState_.verdict; }
  /// Lets go of the band and connects it anew, for a pairing key that has changed.
  void authenticateAnew();

  // --- Band lock and capability report ---

  /// Locks to the first band known, if any.
  void lockToMac();
  void removeLock();
  void sendPeripheralCapabilities() override;

 private:
  MBCentralManager(const platform::Platform& platform, mbservices::KeyProvider& keyProvider,
                   const MBHealthKitManager& healthKitManager,
                   std::weak_ptr<platform::CentralManagerDelegate> delegate);

  void statusMayHaveChanged();

  void readLockFile();
  /// The MAC address that the advertisement tells, or the one that stands for an unknown.
  std::string macFromAdvertisement(const platform::Dictionary& advertisementData) const;
  void handleDisconnection(const std::shared_ptr<platform::Peripheral>& peripheral,
                           const platform::ErrorOrNone& error);
  bool hasWorkFor(const MBPeripheral& band) const;
  void startBandConnection();

  /// Acts on each band that is set up, connects each that is away, and waits for the others.
  void serveEveryBand(const std::function<void(const std::shared_ptr<MBPeripheral>& band)>& action);
  void startRetryTimer(const std::shared_ptr<MBPeripheral>& band);
  void handleRetry(const std::shared_ptr<MBPeripheral>& band);

  /// Seconds that an alert waits: the band shows the first one only some time after it is set up.
  float alertDelay(const MBPeripheral& band) const;
  void sendRepeatedAlert(const std::shared_ptr<mbmodel::MBVibrateModel>& mode,
                         const std::weak_ptr<MBPeripheral>& weakBand, int sendsLeft);
  void sendNotificationAlert(const std::shared_ptr<mbmodel::MBVibrateModel>& mode,
                             const std::shared_ptr<MBPeripheral>& band);
  void readSteps(const std::shared_ptr<MBPeripheral>& band);
  void postSteps(std::uint64_t steps);
  platform::Date stopwatchStart() const;
  void readStopwatch(const std::shared_ptr<MBPeripheral>& band);
  void postStopwatch(platform::TimeInterval elapsed);
  void writePendingDate(const std::shared_ptr<MBPeripheral>& band);
  void writePresentTime(const std::shared_ptr<MBPeripheral>& band);
  void connectAnyBand();

  mbservices::KeyProvider& keyProvider_;
  const MBHealthKitManager& healthKitManager_;
  platform::Logger logger_;
  std::unique_ptr<platform::MessageCenter> shellCompanion_;
  mbservices::AuthState authState_;
  /// The bands that were authenticated here. A link to one of them that nobody here has made is
  /// left over from an earlier run; any other belongs to another program.
  bleobjects::YMSCBStoredPeripherals servedPeripherals_;

  /// Shared, so that a call in progress survives its replacement.
  std::shared_ptr<platform::UniqueFunction<void()>> statusObserver_;
  bool statusQueued_ = false;

  SessionState state_ = SessionState::poweredOff;
  std::string macToLock_;
  std::vector<platform::UUID> services_;
  std::unique_ptr<platform::Observation> capabilityRequests_;

  bool notificationActive_ = false;
  bool stepsActive_ = false;
  bool stepExtraTime_ = false;
  bool heartRateActive_ = false;
  bool heartRateRequested_ = false;
  bool isSetTimeActive_ = false;
  bool isClockSyncActive_ = false;
  bool isConnectedMode_ = false;
  bool isContinuousHR_ = false;
  bool firstAlertPending_ = true;

  /// Shared, because an alert on its way is one with it: stopVibration shortens both.
  std::shared_ptr<mbmodel::MBVibrateModel> pendingAlertMode_;
  std::optional<platform::Date> pendingDate_;
  std::int64_t pendingHrMode_ = 0;
  long lastDisconnectError_ = 0;

  /// The link's end that is awaited is to be followed by a new one.
  bool connectsAnew_ = false;

  std::unique_ptr<platform::Timer> disconnectTimer_;
  std::unique_ptr<platform::Timer> retryTimer_;
  int retryCount_ = 0;
};

}  // namespace wrixel2::mbble
