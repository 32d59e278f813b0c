#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/CentralManager.h"

namespace wrixel2::platform::bluez {

/// Writes down what the delegates are told, as "state 5", "connected", "disconnected 7" ("-": no
/// error), "value 2a2b aa", "written 2a2b 14", "notifying 2a2b yes -".
class EventRecorder final : public CentralManagerDelegate, public PeripheralDelegate {
 public:
  std::vector<std::string> events;
  std::vector<std::shared_ptr<Peripheral>> found;
  /// Called after each event.
  std::function<void(const std::string& event)> react;

 private:
  void add(std::string event);

  void centralManagerDidUpdateState(CentralManager& central) override;
  void centralManagerDidDiscoverPeripheral(CentralManager& central,
                                           const std::shared_ptr<Peripheral>& peripheral,
                                           const Dictionary& data, int rssi) override;
  void centralManagerDidConnectPeripheral(CentralManager& central,
                                          const std::shared_ptr<Peripheral>& peripheral) override;
  void centralManagerDidDisconnectPeripheral(CentralManager& central,
                                             const std::shared_ptr<Peripheral>& peripheral,
                                             const ErrorOrNone& error) override;
  void centralManagerDidFailToConnectPeripheral(CentralManager& central,
                                                const std::shared_ptr<Peripheral>& peripheral,
                                                const ErrorOrNone& error) override;
  void peripheralDidDiscoverServices(const std::shared_ptr<Peripheral>& peripheral,
                                     const ErrorOrNone& error) override;
  void peripheralDidDiscoverIncludedServicesForService(
      const std::shared_ptr<Peripheral>& peripheral, const std::shared_ptr<Service>& service,
      const ErrorOrNone& error) override;
  void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<Peripheral>& peripheral,
                                                      const std::shared_ptr<Service>& service,
                                                      const ErrorOrNone& error) override;
  void peripheralDidDiscoverDescriptorsForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) override;
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) override;
  void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<Peripheral>& peripheral,
                                             const std::shared_ptr<Descriptor>& descriptor,
                                             const ErrorOrNone& error) override;
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) override;
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<Peripheral>& peripheral,
      const std::shared_ptr<Characteristic>& characteristic, const ErrorOrNone& error) override;
  void peripheralDidWriteValueForDescriptor(const std::shared_ptr<Peripheral>& peripheral,
                                            const std::shared_ptr<Descriptor>& descriptor,
                                            const ErrorOrNone& error) override;
  void peripheralDidUpdateRSSI(const std::shared_ptr<Peripheral>& peripheral,
                               const ErrorOrNone& error) override;
  void peripheralDidUpdateName(const std::shared_ptr<Peripheral>& peripheral) override;
};

}  // namespace wrixel2::platform::bluez
