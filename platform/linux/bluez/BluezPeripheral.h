#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Peripheral.h"
#include "platform/linux/bluez/BluezGattClient.h"
#include "platform/linux/bluez/BluezLink.h"

namespace wrixel2::platform::bluez {

/// How a peripheral's link reaches the central manager's delegate: each change is made in the turn
/// in which the delegate hears of it.
class BluezLinkAnswers {
 public:
  virtual void didConnect(const std::shared_ptr<Peripheral>& peripheral, Task change) = 0;
  virtual void didFailToConnect(const std::shared_ptr<Peripheral>& peripheral, const Error& error,
                                Task change) = 0;
  virtual void didDisconnect(const std::shared_ptr<Peripheral>& peripheral,
                             const ErrorOrNone& error, Task change) = 0;

 protected:
  BluezLinkAnswers() = default;
  BluezLinkAnswers(const BluezLinkAnswers&) = default;
  BluezLinkAnswers& operator=(const BluezLinkAnswers&) = default;
  ~BluezLinkAnswers() = default;
};

/// A device as one central manager sees it. It may outlive the manager; nothing is answered then.
class BluezPeripheral final : public Peripheral,
                              public std::enable_shared_from_this<BluezPeripheral>,
                              private BluezLinkObserver,
                              private BluezGattAnswers {
 public:
  /// The device is the last part of its path. Context and answers are borrowed until leave().
  BluezPeripheral(BluezCentralContext& context, BluezLinkAnswers& linkAnswers, std::string device,
                  const Dictionary& properties);
  BluezPeripheral(const BluezPeripheral&) = delete;
  BluezPeripheral& operator=(const BluezPeripheral&) = delete;

  const UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return name_; }
  PeripheralState state() const override { return state_; }
  std::vector<std::shared_ptr<Service>> services() const override;
  void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) override {
    delegate_ = std::move(delegate);
  }
  void discoverServices(const std::optional<std::vector<UUID>>& services) override;
  void discoverCharacteristics(const std::optional<std::vector<UUID>>& characteristics,
                               const std::shared_ptr<Service>& service) override;
  void discoverDescriptors(const std::shared_ptr<Characteristic>& characteristic) override;
  void readValueForCharacteristic(const std::shared_ptr<Characteristic>& characteristic) override;
  void writeValueForCharacteristic(const Bytes& data,
                                   const std::shared_ptr<Characteristic>& characteristic,
                                   WriteType type) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& characteristic) override;
  void readValueForDescriptor(const std::shared_ptr<Descriptor>& descriptor) override;
  void writeValueForDescriptor(const Bytes& data,
                               const std::shared_ptr<Descriptor>& descriptor) override;
  /// Answered with an error: bluetoothd does not tell the signal strength of a link.
  void readRSSI() override;

  // --- from its central manager ---

  void connect();
  void cancelConnection();
  /// After a change of the device's properties. A name once known stays.
  void updateName(const Dictionary& properties);
  /// The manager goes away.
  void leave();

  BluezLink& link() { return *link_; }
  BluezGattClient& gatt() { return *gatt_; }

 private:
  void linkCameUp() override;
  void linkLost() override;
  void linkEnded(const ErrorOrNone& error) override;
  void linkFailed(const Error& error) override;
  void answer(Task change, Tell tell) override;

  Task showState();

  BluezCentralContext* context_;
  BluezLinkAnswers* linkAnswers_;
  UUID identifier_;
  std::optional<std::string> name_;
  PeripheralState state_ = PeripheralState::disconnected;
  std::weak_ptr<PeripheralDelegate> delegate_;
  std::unique_ptr<BluezLink> link_;
  std::unique_ptr<BluezGattClient> gatt_;
};

}  // namespace wrixel2::platform::bluez
