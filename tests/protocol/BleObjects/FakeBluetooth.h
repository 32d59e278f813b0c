#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/CentralManager.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"
#include "protocol/BleObjects/YMSCBService.h"

namespace wrixel2::bleobjects {

/// What was asked of a fake or told to a recorder, one text each, in order.
using Journal = std::vector<std::string>;

inline platform::UUID uuid(const char* text) { return platform::UUID::withString(text); }

inline const platform::ErrorOrNone kNoError;
inline const platform::ErrorOrNone kFailure =
    platform::Error{platform::bluetooth_error::connectionTimeout, "timed out"};

inline std::string outcome(const platform::ErrorOrNone& error) {
  return error ? "error " + std::to_string(error->code) : "ok";
}

/// Writes down how each request ended.
inline ErrorCallback noting(Journal& journal, std::string name) {
  return [&journal, name = std::move(name)](const platform::ErrorOrNone& error) {
    journal.push_back(name + " " + outcome(error));
  };
}
inline ReadCallback notingRead(Journal& journal, std::string name) {
  return [&journal, name = std::move(name)](const std::optional<platform::Bytes>& data,
                                            const platform::ErrorOrNone& error) {
    journal.push_back(name + " " + (data ? platform::hexText(*data) : "none") + " " +
                      outcome(error));
  };
}

class FakeDescriptor final : public platform::Descriptor {
 public:
  explicit FakeDescriptor(const char* id) : uuid_(bleobjects::uuid(id)) {}
  const platform::UUID& uuid() const override { return uuid_; }

 private:
  platform::UUID uuid_;
};

class FakeCharacteristic final : public platform::Characteristic {
 public:
  FakeCharacteristic(const char* id, std::weak_ptr<platform::Service> service)
      : uuid_(bleobjects::uuid(id)), service_(std::move(service)) {}
  const platform::UUID& uuid() const override { return uuid_; }
  std::shared_ptr<platform::Service> service() const override { return service_.lock(); }
  std::optional<platform::Bytes> value() const override { return currentValue; }
  bool isNotifying() const override { return notifies; }
  std::vector<std::shared_ptr<platform::Descriptor>> descriptors() const override {
    return knownDescriptors;
  }

  std::optional<platform::Bytes> currentValue;
  bool notifies = false;
  std::vector<std::shared_ptr<platform::Descriptor>> knownDescriptors;

 private:
  platform::UUID uuid_;
  std::weak_ptr<platform::Service> service_;
};

class FakeService final : public platform::Service,
                          public std::enable_shared_from_this<FakeService> {
 public:
  explicit FakeService(const char* id) : uuid_(bleobjects::uuid(id)) {}
  const platform::UUID& uuid() const override { return uuid_; }
  std::vector<std::shared_ptr<platform::Characteristic>> characteristics() const override {
    return known;
  }

  std::shared_ptr<FakeCharacteristic> add(const char* id) {
    auto characteristic = std::make_shared<FakeCharacteristic>(id, weak_from_this());
    known.push_back(characteristic);
    return characteristic;
  }

  std::vector<std::shared_ptr<platform::Characteristic>> known;

 private:
  platform::UUID uuid_;
};

/// A device that answers nothing by itself: the test calls the delegate.
class FakePeripheral final : public platform::Peripheral {
 public:
  explicit FakePeripheral(const char* id = "11111111-2222-3333-4444-555555555555")
      : identifier_(uuid(id)) {}

  const platform::UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return deviceName; }
  platform::PeripheralState state() const override { return linkState; }
  std::vector<std::shared_ptr<platform::Service>> services() const override { return known; }
  void setDelegate(std::weak_ptr<platform::PeripheralDelegate> newDelegate) override {
    delegate = std::move(newDelegate);
  }
  void discoverServices(const std::optional<std::vector<platform::UUID>>& list) override {
    journal.push_back("discoverServices" + texts(list));
  }
  void discoverCharacteristics(const std::optional<std::vector<platform::UUID>>& list,
                               const std::shared_ptr<platform::Service>& service) override {
    journal.push_back("discoverCharacteristics of " + service->uuid().text() + texts(list));
  }
  void discoverDescriptors(
      const std::shared_ptr<platform::Characteristic>& characteristic) override {
    journal.push_back("discoverDescriptors of " + characteristic->uuid().text());
  }
  void readValueForCharacteristic(
      const std::shared_ptr<platform::Characteristic>& characteristic) override {
    journal.push_back("read " + characteristic->uuid().text());
  }
  void writeValueForCharacteristic(const platform::Bytes& data,
                                   const std::shared_ptr<platform::Characteristic>& characteristic,
                                   platform::WriteType type) override {
    journal.push_back((type == platform::WriteType::withResponse ? "request " : "command ") +
                      characteristic->uuid().text() + " " + platform::hexText(data));
  }
  void setNotifyValue(bool enabled,
                      const std::shared_ptr<platform::Characteristic>& characteristic) override {
    journal.push_back((enabled ? "notify " : "quiet ") + characteristic->uuid().text());
  }
  void readValueForDescriptor(const std::shared_ptr<platform::Descriptor>& descriptor) override {
    journal.push_back("readDescriptor " + descriptor->uuid().text());
  }
  void writeValueForDescriptor(const platform::Bytes& data,
                               const std::shared_ptr<platform::Descriptor>& descriptor) override {
    journal.push_back("writeDescriptor " + descriptor->uuid().text() + " " +
                      platform::hexText(data));
  }
  void readRSSI() override { journal.emplace_back("readRSSI"); }

  std::optional<std::string> deviceName = "MI Band 2";
  platform::PeripheralState linkState = platform::PeripheralState::disconnected;
  std::vector<std::shared_ptr<platform::Service>> known;
  std::weak_ptr<platform::PeripheralDelegate> delegate;
  Journal journal;

 private:
  static std::string texts(const std::optional<std::vector<platform::UUID>>& list) {
    std::string text = list ? ":" : ": all";
    for (const auto& id : list.value_or(std::vector<platform::UUID>())) {
      text += " " + id.text();
    }
    return text;
  }

  platform::UUID identifier_;
};

class FakeCentralManager final : public platform::CentralManager {
 public:
  platform::CentralState state() const override { return radioState; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<platform::UUID>>& services,
                                      const platform::Dictionary& options) override {
    journal.push_back("scan " + std::to_string(services ? services->size() : 0) + " " +
                      std::to_string(options.size()));
  }
  void stopScan() override { journal.emplace_back("stopScan"); }
  void connectPeripheral(const std::shared_ptr<platform::Peripheral>& peripheral,
                         const platform::Dictionary& options) override {
    journal.push_back("connect " + peripheral->identifier().longText().substr(0, 8) + " " +
                      std::to_string(options.size()));
  }
  void cancelPeripheralConnection(
      const std::shared_ptr<platform::Peripheral>& peripheral) override {
    journal.push_back("cancel " + peripheral->identifier().longText().substr(0, 8));
  }
  std::vector<std::shared_ptr<platform::Peripheral>> retrieveConnectedPeripheralsWithServices(
      const std::vector<platform::UUID>& services) override {
    journal.push_back("retrieveConnected " + std::to_string(services.size()));
    return retrieved;
  }
  std::vector<std::shared_ptr<platform::Peripheral>> retrievePeripheralsWithIdentifiers(
      const std::vector<platform::UUID>& identifiers) override {
    journal.push_back("retrieve " + std::to_string(identifiers.size()));
    return retrieved;
  }

  platform::CentralState radioState = platform::CentralState::unknown;
  std::vector<std::shared_ptr<platform::Peripheral>> retrieved;
  Journal journal;
};

class FakeRadio final : public platform::BluetoothRadio {
 public:
  std::unique_ptr<platform::CentralManager> makeCentralManager(
      std::weak_ptr<platform::CentralManagerDelegate> newDelegate, platform::Queue queue,
      const std::vector<platform::UUID>& identifiers) override {
    delegate = std::move(newDelegate);
    queueLabel = queue.label();
    storedIdentifiers = identifiers;
    auto made = std::make_unique<FakeCentralManager>();
    manager = made.get();
    return made;
  }

  std::weak_ptr<platform::CentralManagerDelegate> delegate;
  std::string queueLabel;
  std::vector<platform::UUID> storedIdentifiers;
  FakeCentralManager* manager = nullptr;  ///< of the central made last, which owns it
};

/// A session manager that writes down which of its operations were called. Its watchdogDisconnect
/// has nothing to do with the scan's.
class FakeSessionManager final : public YMSCBCentralManager {
 public:
  static std::shared_ptr<FakeSessionManager> create(
      const platform::Platform& platform, bool useStoredPeripherals,
      std::weak_ptr<platform::CentralManagerDelegate> delegate = {}) {
    const std::shared_ptr<FakeSessionManager> central(
        new FakeSessionManager(platform, useStoredPeripherals, std::move(delegate)));
    central->init();
    return central;
  }

  void handleFoundPeripheral(const std::shared_ptr<platform::Peripheral>& peripheral) override {
    journal.push_back("found " + peripheral->identifier().longText().substr(0, 8));
  }
  void managerPoweredOnHandler() override { journal.emplace_back("on"); }
  void managerUnknownHandler() override { journal.emplace_back("unknown"); }
  void managerPoweredOffHandler() override { journal.emplace_back("off"); }
  void managerResettingHandler() override {
    YMSCBCentralManager::managerResettingHandler();
    journal.emplace_back("resetting");
  }
  void managerUnauthorizedHandler() override { journal.emplace_back("unauthorized"); }
  void managerUnsupportedHandler() override { journal.emplace_back("unsupported"); }
  void watchdogDisconnect() { journal.emplace_back("its own watchdog"); }

  Journal journal;

 private:
  FakeSessionManager(const platform::Platform& platform, bool useStoredPeripherals,
                     std::weak_ptr<platform::CentralManagerDelegate> delegate)
      : YMSCBCentralManager(platform, {"MI Band 2", "Other"},
                            platform.runLoop.makeSerialQueue("radio"), useStoredPeripherals,
                            std::move(delegate)) {}
};

/// A service that writes down what its handler is called with.
class FakeBandService final : public YMSCBService {
 public:
  FakeBandService(const platform::Platform& platform, std::weak_ptr<YMSCBPeripheral> parent,
                  Journal& journal)
      : YMSCBService(platform, "heart", std::move(parent), 0, 0, ServiceOffset{0x180D}),
        journal_(journal) {
    addCharacteristicWithAddress("measurement", 0x2A37);
    addCharacteristicWithAddress("control", 0x2A39);
  }

  void notifyCharacteristicHandler(const std::shared_ptr<YMSCBCharacteristic>& characteristic,
                                   const platform::ErrorOrNone& error) override {
    const auto& value = characteristic->value();
    journal_.push_back("handler " + characteristic->name() + " " +
                       (value ? platform::hexText(*value) : "none") + " " + outcome(error));
  }

 private:
  Journal& journal_;
};

/// A connected device with one service of two characteristics, known to the radio and declared to
/// the layer, but not yet bound to each other.
class BleObjectsTest : public testing::Test {
 protected:
  BleObjectsTest()
      : central(FakeSessionManager::create(phone.handle(), false)),
        device(std::make_shared<FakePeripheral>()),
        peripheral(YMSCBPeripheral::create(phone.handle(), device, central, 0, 0)),
        service(std::make_shared<FakeBandService>(phone.handle(), peripheral, journal)),
        deviceService(std::make_shared<FakeService>("180d")),
        deviceMeasurement(deviceService->add("2a37")),
        deviceControl(deviceService->add("2a39")) {
    device->linkState = platform::PeripheralState::connected;
    device->known = {deviceService};
    peripheral->setServiceDict({{"heart", service}});
    central->addPeripheral(peripheral);
    measurement = (*service)["measurement"];
    control = (*service)["control"];
  }

  /// As after a discovery.
  void bind() {
    service->setCbService(deviceService);
    service->syncCharacteristics(deviceService->known);
    phone.runLoop.runUntilIdle();
  }

  std::vector<std::string> warnings() const {
    return phone.log.messages(platform::LogLevel::warning);
  }

  FakeRadio radio;
  platform::simulated::SimulatedPlatform phone{&radio};
  Journal journal;
  std::shared_ptr<FakeSessionManager> central;
  std::shared_ptr<FakePeripheral> device;
  std::shared_ptr<YMSCBPeripheral> peripheral;
  std::shared_ptr<FakeBandService> service;
  std::shared_ptr<YMSCBCharacteristic> measurement;
  std::shared_ptr<YMSCBCharacteristic> control;
  std::shared_ptr<FakeService> deviceService;
  std::shared_ptr<FakeCharacteristic> deviceMeasurement;
  std::shared_ptr<FakeCharacteristic> deviceControl;
};

}  // namespace wrixel2::bleobjects
