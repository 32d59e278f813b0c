#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Date.h"
#include "platform/Peripheral.h"
#include "platform/RunLoop.h"
#include "platform/UUID.h"
#include "platform/Value.h"
#include "protocol/BleObjects/YMSCBCallbacks.h"
#include "protocol/BleObjects/YMSCBUtils.h"

namespace wrixel2::platform {
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::bleobjects {

class YMSCBCentralManager;

/// A remote device: its services by name, connecting with a watchdog, and the routing of the
/// platform's answers to the services and characteristics that they concern.
///
/// Every platform callback is queued on the main queue, handled there and then passed on unchanged
/// to the delegate. Always held in a shared pointer: what is queued holds it weakly and is dropped
/// when it is gone. Pending callbacks survive a disconnection.
class YMSCBPeripheral : public platform::PeripheralDelegate,
                        public std::enable_shared_from_this<YMSCBPeripheral> {
 public:
  /// A peripheral without services.
  static std::shared_ptr<YMSCBPeripheral> create(const platform::Platform& platform,
                                                 std::shared_ptr<platform::Peripheral> cbPeripheral,
                                                 std::weak_ptr<YMSCBCentralManager> central,
                                                 std::uint64_t baseHi, std::uint64_t baseLo);
  YMSCBPeripheral(const YMSCBPeripheral&) = delete;
  YMSCBPeripheral& operator=(const YMSCBPeripheral&) = delete;
  ~YMSCBPeripheral() override;

  /// For the services of subclasses.
  const yms_u128_t& base() const { return base_; }
  void setBase(const yms_u128_t& base) { base_ = base; }
  /// The device's name; none if it has none or there is no platform peripheral.
  std::optional<std::string> name() const;
  std::shared_ptr<platform::PeripheralDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(std::weak_ptr<platform::PeripheralDelegate> delegate);
  /// The watchdog ended a connection attempt.
  bool watchdogRaised() const { return watchdogRaised_; }
  void setWatchdogRaised(bool raised) { watchdogRaised_ = raised; }
  const ServiceDict& serviceDict() const { return serviceDict_; }
  void setServiceDict(ServiceDict services) { serviceDict_ = std::move(services); }
  /// None for a name that the table does not have.
  std::shared_ptr<YMSCBService> operator[](std::string_view key) const;
  const std::shared_ptr<platform::Peripheral>& cbPeripheral() const { return cbPeripheral_; }
  void setCbPeripheral(std::shared_ptr<platform::Peripheral> peripheral);
  bool isConnected() const;
  /// For subclasses: set up after connecting. The central clears it on disconnection.
  bool isInitialized() const { return isInitialized_; }
  void setIsInitialized(bool isInitialized) { isInitialized_ = isInitialized; }
  /// For subclasses; 2 s.
  platform::TimeInterval rssiPingPeriod() const { return rssiPingPeriod_; }
  void setRssiPingPeriod(platform::TimeInterval period) { rssiPingPeriod_ = period; }
  /// None once the central is gone.
  std::shared_ptr<YMSCBCentralManager> central() const { return central_.lock(); }
  void setCentral(std::weak_ptr<YMSCBCentralManager> central) { central_ = std::move(central); }
  /// How long connecting may take; 45 s.
  platform::TimeInterval watchdogTimerInterval() const { return watchdogTimerInterval_; }
  void setWatchdogTimerInterval(platform::TimeInterval interval) {
    watchdogTimerInterval_ = interval;
  }
  /// None while nothing is watched.
  const platform::Timer* watchdogTimer() const { return watchdogTimer_.get(); }
  void setWatchdogTimer(std::unique_ptr<platform::Timer> timer) {
    watchdogTimer_ = std::move(timer);
  }
  /// The pending callbacks, empty ones where nobody waits; setting replaces them uncalled.
  const ConnectCallback& connectCallback() const { return connectCallback_; }
  void setConnectCallback(ConnectCallback callback) { connectCallback_ = std::move(callback); }
  const DiscoverServicesCallback& discoverServicesCallback() const {
    return discoverServicesCallback_;
  }
  void setDiscoverServicesCallback(DiscoverServicesCallback callback) {
    discoverServicesCallback_ = std::move(callback);
  }
  bool isRenderedInViewCell() const { return isRenderedInViewCell_; }
  void setIsRenderedInViewCell(bool isRendered) { isRenderedInViewCell_ = isRendered; }

  /// The UUIDs of all services of the table.
  std::vector<platform::UUID> services() const;
  /// Those of the names, in their order; unknown names are skipped.
  std::vector<platform::UUID> servicesSubset(const std::vector<std::string>& names) const;
  /// The table's service of that UUID; none if there is none.
  std::shared_ptr<YMSCBService> findService(
      const std::shared_ptr<platform::Service>& cbService) const;

  /// Connects under the watchdog and discovers the whole table, down to descriptors. Stops silently
  /// at the first error.
  virtual void connect();
  /// Also ends the watchdog; watchdogRaised stays as it is. The pending connect callback is
  /// dropped.
  void disconnect();
  /// Replaces an earlier pending callback, which is then never called.
  void connectWithOptions(const platform::Dictionary& options, ConnectCallback callback);
  /// Drops the pending connect callback uncalled.
  void cancelConnection();
  /// The central's answer: no error means connected. Ends the watchdog, calls the pending callback
  /// and then forgets whatever callback is pending, also one that was stored during the call.
  void handleConnectionResponse(const platform::ErrorOrNone& error);
  /// Called for an answer without a pending callback. Fatal unless overridden.
  virtual void defaultConnectionHandler();

  /// Starts the watchdog's time anew, from the next turn on.
  void resetWatchdog();
  /// Clears watchdogRaised as well, but only if there is a timer.
  void invalidateWatchdog();
  /// Ends an attempt that is not connected by now; a connected device is left alone.
  void watchdogDisconnect();

  /// The answer goes to the delegate only.
  void readRSSI();
  void discoverServices(const std::vector<platform::UUID>& uuids,
                        DiscoverServicesCallback callback);

  void peripheralDidDiscoverServices(const std::shared_ptr<platform::Peripheral>& peripheral,
                                     const platform::ErrorOrNone& error) override;
  void peripheralDidDiscoverIncludedServicesForService(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Service>& service,
      const platform::ErrorOrNone& error) override;
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Service>& service,
      const platform::ErrorOrNone& error) override;
  void peripheralDidDiscoverDescriptorsForCharacteristic(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Characteristic>& characteristic,
      const platform::ErrorOrNone& error) override;
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Characteristic>& characteristic,
      const platform::ErrorOrNone& error) override;
  void peripheralDidUpdateValueForDescriptor(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Descriptor>& descriptor,
      const platform::ErrorOrNone& error) override;
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Characteristic>& characteristic,
      const platform::ErrorOrNone& error) override;
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Characteristic>& characteristic,
      const platform::ErrorOrNone& error) override;
  void peripheralDidWriteValueForDescriptor(const std::shared_ptr<platform::Peripheral>& peripheral,
                                            const std::shared_ptr<platform::Descriptor>& descriptor,
                                            const platform::ErrorOrNone& error) override;
  void peripheralDidUpdateRSSI(const std::shared_ptr<platform::Peripheral>& peripheral,
                               const platform::ErrorOrNone& error) override;
  void peripheralDidUpdateName(const std::shared_ptr<platform::Peripheral>& peripheral) override;

 protected:
  YMSCBPeripheral(const platform::Platform& platform,
                  std::shared_ptr<platform::Peripheral> cbPeripheral,
                  std::weak_ptr<YMSCBCentralManager> central, std::uint64_t baseHi,
                  std::uint64_t baseLo);
  /// The part of creation that needs the shared pointer: whoever constructs one calls it once,
  /// right after the shared pointer exists.
  void init();

  const platform::Platform& platform() const { return *platform_; }

 private:
  using CharacteristicEvent = void (platform::PeripheralDelegate::*)(
      const std::shared_ptr<platform::Peripheral>&,
      const std::shared_ptr<platform::Characteristic>&, const platform::ErrorOrNone&);

  /// Queues the work on the main queue, for as long as this lives.
  void onMainQueue(platform::UniqueFunction<void(YMSCBPeripheral& self)> work);
  /// The table's service of the characteristic, also when the platform has let go of its own.
  std::shared_ptr<YMSCBService> serviceOf(
      const std::shared_ptr<platform::Characteristic>& cbCharacteristic,
      const std::shared_ptr<platform::Service>& cbService) const;
  /// Runs the work with the objects of the characteristic, if the tables have them, and then tells
  /// the delegate; all of it on the main queue.
  void route(
      const std::shared_ptr<platform::Peripheral>& peripheral,
      const std::shared_ptr<platform::Characteristic>& characteristic,
      const platform::ErrorOrNone& error, CharacteristicEvent event,
      platform::UniqueFunction<void(YMSCBService&, const std::shared_ptr<YMSCBCharacteristic>&)>
          work);
  /// Passes the event on to the delegate, if there is one.
  template <typename... Parameters, typename... Arguments>
  void forward(void (platform::PeripheralDelegate::*event)(Parameters...),
               const Arguments&... arguments) const;

  const platform::Platform* platform_;
  yms_u128_t base_;
  std::weak_ptr<platform::PeripheralDelegate> delegate_;
  bool watchdogRaised_ = false;
  ServiceDict serviceDict_;
  std::shared_ptr<platform::Peripheral> cbPeripheral_;
  bool isInitialized_ = false;
  platform::TimeInterval rssiPingPeriod_ = std::chrono::seconds(2);
  std::weak_ptr<YMSCBCentralManager> central_;  ///< owns this
  std::unique_ptr<platform::Timer> watchdogTimer_;
  platform::TimeInterval watchdogTimerInterval_ = std::chrono::seconds(45);
  ConnectCallback connectCallback_;
  DiscoverServicesCallback discoverServicesCallback_;
  bool isRenderedInViewCell_ = false;
};

}  // namespace wrixel2::bleobjects
