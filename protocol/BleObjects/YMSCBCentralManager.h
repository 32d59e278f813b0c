#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/CentralManager.h"
#include "platform/Date.h"
#include "platform/Log.h"
#include "platform/RunLoop.h"
#include "platform/UUID.h"
#include "platform/Value.h"
#include "protocol/BleObjects/YMSCBCallbacks.h"
#include "protocol/BleObjects/YMSCBStoredPeripherals.h"

namespace wrixel2::platform {
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

/// Base of the session manager: owns the platform's central and the device objects made of what it
/// finds, scans under a watchdog, and passes connection results to the device that they concern.
///
/// Every platform callback is queued on the main queue, handled there and then passed on unchanged
/// to the delegate. Always held in a shared pointer: what is queued holds it weakly and is dropped
/// when it is gone.
class YMSCBCentralManager : public platform::CentralManagerDelegate,
                            public std::enable_shared_from_this<YMSCBCentralManager> {
 public:
  YMSCBCentralManager(const YMSCBCentralManager&) = delete;
  YMSCBCentralManager& operator=(const YMSCBCentralManager&) = delete;
  ~YMSCBCentralManager() override;

  const std::vector<std::shared_ptr<YMSCBPeripheral>>& ymsPeripherals() const {
    return ymsPeripherals_;
  }
  void setYmsPeripherals(std::vector<std::shared_ptr<YMSCBPeripheral>> peripherals) {
    ymsPeripherals_ = std::move(peripherals);
  }
  std::shared_ptr<platform::CentralManagerDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<platform::CentralManagerDelegate> delegate);
  platform::CentralManager& manager() const { return *manager_; }
  /// Never none.
  void setManager(std::unique_ptr<platform::CentralManager> manager) {
    manager_ = std::move(manager);
  }
  const std::vector<std::string>& knownPeripheralNames() const { return knownPeripheralNames_; }
  void setKnownPeripheralNames(std::vector<std::string> names);
  bool isScanning() const { return isScanning_; }
  void setIsScanning(bool isScanning) { isScanning_ = isScanning; }
  /// Of this layer.
  std::string_view version() const { return "1.090"; }
  /// None unless one is set. It may be replaced while it is called.
  std::shared_ptr<const DiscoveredCallback> discoveredCallback() const {
    return discoveredCallback_;
  }
  /// Takes every discovered device from then on, also in later scans that were started without a
  /// callback; none hands them to handleFoundPeripheral.
  void setDiscoveredCallback(DiscoveredCallback callback);
  /// For subclasses; never called here.
  const RetrievedCallback& retrievedCallback() const { return retrievedCallback_; }
  void setRetrievedCallback(RetrievedCallback callback);
  /// Remember the identifiers of discovered devices.
  bool useStoredPeripherals() const { return useStoredPeripherals_; }
  void setUseStoredPeripherals(bool use) { useStoredPeripherals_ = use; }
  /// How long a scan may last; 60 s.
  platform::TimeInterval watchdogTimerInterval() const { return watchdogTimerInterval_; }
  void setWatchdogTimerInterval(platform::TimeInterval interval) {
    watchdogTimerInterval_ = interval;
  }
  /// None while nothing is watched.
  const platform::Timer* watchdogTimer() const { return watchdogTimer_.get(); }
  void setWatchdogTimer(std::unique_ptr<platform::Timer> timer) {
    watchdogTimer_ = std::move(timer);
  }

  std::size_t count() const { return ymsPeripherals_.size(); }
  /// None beyond the end.
  std::shared_ptr<YMSCBPeripheral> peripheralAtIndex(std::size_t index) const;
  void addPeripheral(std::shared_ptr<YMSCBPeripheral> peripheral);
  /// Ignores a peripheral that is not in the list. Every removal forgets the stored identifier.
  void removePeripheral(const std::shared_ptr<YMSCBPeripheral>& peripheral);
  void removePeripheralAtIndex(std::size_t index);
  void removeAllPeripherals();
  std::size_t countOfYmsPeripherals() const { return count(); }
  std::shared_ptr<YMSCBPeripheral> objectInYmsPeripheralsAtIndex(std::size_t index) const {
    return peripheralAtIndex(index);
  }
  /// Beyond the end it is appended.
  void insertObjectInYmsPeripheralsAtIndex(std::shared_ptr<YMSCBPeripheral> peripheral,
                                           std::size_t index);
  void removeObjectFromYmsPeripheralsAtIndex(std::size_t index);

  /// By its exact name.
  bool isKnownPeripheral(const platform::Peripheral& peripheral) const;
  /// By identity of the platform's object; none if there is none.
  std::shared_ptr<YMSCBPeripheral> findPeripheral(
      const std::shared_ptr<platform::Peripheral>& cbPeripheral) const;

  /// Fatal unless overridden.
  virtual void startScan();
  /// None means any service.
  void scanForPeripheralsWithServices(const std::optional<std::vector<platform::UUID>>& services,
                                      const platform::Dictionary& options);
  /// The callback stays set after the scan.
  void scanForPeripheralsWithServicesWithBlock(
      const std::optional<std::vector<platform::UUID>>& services,
      const platform::Dictionary& options, DiscoveredCallback callback);
  void stopScan();

  /// These three are about the scan's time-out and never touch a connection. A subclass may have
  /// operations of these names for its own purposes: the scan's timer does not call those.
  void resetWatchdog();
  void invalidateWatchdog();
  void watchdogDisconnect();

  /// A discovered device that no callback takes. Fatal unless overridden.
  virtual void handleFoundPeripheral(const std::shared_ptr<platform::Peripheral>& peripheral);

  /// The platform's answers; no device objects are made.
  std::vector<std::shared_ptr<platform::Peripheral>> retrieveConnectedPeripheralsWithServices(
      const std::vector<platform::UUID>& services);
  std::vector<std::shared_ptr<platform::Peripheral>> retrievePeripheralsWithIdentifiers(
      const std::vector<platform::UUID>& identifiers);

  virtual void managerPoweredOnHandler();
  virtual void managerUnknownHandler();
  virtual void managerPoweredOffHandler();
  /// Forgets the device objects, but no stored identifier.
  virtual void managerResettingHandler();
  virtual void managerUnauthorizedHandler();
  virtual void managerUnsupportedHandler();

  void centralManagerDidUpdateState(platform::CentralManager& central) override;
  void centralManagerDidDiscoverPeripheral(platform::CentralManager& central,
                                           const std::shared_ptr<platform::Peripheral>& peripheral,
                                           const platform::Dictionary& advertisementData,
                                           int rssi) override;
  void centralManagerDidConnectPeripheral(
      platform::CentralManager& central,
      const std::shared_ptr<platform::Peripheral>& peripheral) override;
  void centralManagerDidDisconnectPeripheral(
      platform::CentralManager& central, const std::shared_ptr<platform::Peripheral>& peripheral,
      const platform::ErrorOrNone& error) override;
  void centralManagerDidFailToConnectPeripheral(
      platform::CentralManager& central, const std::shared_ptr<platform::Peripheral>& peripheral,
      const platform::ErrorOrNone& error) override;

 protected:
  /// The platform will deliver every central and peripheral callback on the queue.
  YMSCBCentralManager(const platform::Platform& platform,
                      std::vector<std::string> knownPeripheralNames, platform::Queue queue,
                      bool useStoredPeripherals,
                      std::weak_ptr<platform::CentralManagerDelegate> delegate);
  /// The same without stored peripherals.
  YMSCBCentralManager(const platform::Platform& platform,
                      std::vector<std::string> knownPeripheralNames, platform::Queue queue,
                      std::weak_ptr<platform::CentralManagerDelegate> delegate);
  /// The part of creation that needs the shared pointer: makes the platform's central. Whoever
  /// constructs one calls it once, right after the shared pointer exists.
  void init();

  const platform::Platform& platform() const { return *platform_; }

 private:
  /// Queues the work on the main queue, for as long as this lives.
  void onMainQueue(platform::UniqueFunction<void(YMSCBCentralManager& self)> work);
  void callStateHandler(platform::CentralState state);

  const platform::Platform* platform_;
  platform::Logger log_;
  platform::Queue queue_;
  YMSCBStoredPeripherals storedPeripherals_;
  std::vector<std::shared_ptr<YMSCBPeripheral>> ymsPeripherals_;
  std::weak_ptr<platform::CentralManagerDelegate> delegate_;
  std::unique_ptr<platform::CentralManager> manager_;
  std::vector<std::string> knownPeripheralNames_;
  bool isScanning_ = false;
  /// Shared, so that a call in progress survives its replacement.
  std::shared_ptr<DiscoveredCallback> discoveredCallback_;
  RetrievedCallback retrievedCallback_;
  bool useStoredPeripherals_;
  std::unique_ptr<platform::Timer> watchdogTimer_;
  platform::TimeInterval watchdogTimerInterval_ = std::chrono::seconds(60);
};

}  // namespace wrixel2::bleobjects
