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
#include "tests/platform/linux/bluez/EventRecorder.h"

namespace wrixel2::bleobjects {

using platform::Bytes;
using platform::ErrorOrNone;
using platform::UUID;
using DevicePtr = std::shared_ptr<platform::Peripheral>;
using DeviceServicePtr = std::shared_ptr<platform::Service>;
using DeviceCharacteristicPtr = std::shared_ptr<platform::Characteristic>;
using DescriptorPtr = std::shared_ptr<platform::Descriptor>;

/// What was asked of a fake or told to a recorder, one text each, in order.
using Journal = std::vector<std::string>;

/// Writes down what a delegate is told: "delegate value 2a37 01".
inline std::shared_ptr<platform::bluez::EventRecorder> notingDelegate(Journal& journal) {
  auto delegate = std::make_shared<platform::bluez::EventRecorder>();
  delegate->react = [&journal](const std::string& event) {
    journal.push_back("delegate " + event);
  };
  return delegate;
}

inline UUID uuid(const char* text) { return UUID::withString(text); }

inline const ErrorOrNone kNoError;
inline const ErrorOrNone kFailure =
    platform::Error{platform::bluetooth_error::connectionTimeout, "timed out"};

inline std::string outcome(const ErrorOrNone& error) {
  return error ? "error " + std::to_string(error->code) : "ok";
}

/// Writes down how each request ended.
inline ErrorCallback noting(Journal& journal, std::string name) {
  return [&journal, name = std::move(name)](const ErrorOrNone& error) {
    journal.push_back(name + " " + outcome(error));
  };
}
inline ReadCallback notingRead(Journal& journal, std::string name) {
  return [&journal, name = std::move(name)](const std::optional<Bytes>& data,
                                            const ErrorOrNone& error) {
    journal.push_back(name + " " + (data ? platform::hexText(*data) : "none") + " " +
                      outcome(error));
  };
}

struct FakeDescriptor final : platform::Descriptor {
  explicit FakeDescriptor(const char* text) : id(bleobjects::uuid(text)) {}
  const UUID& uuid() const override { return id; }

  UUID id;
};

struct FakeCharacteristic final : platform::Characteristic {
  FakeCharacteristic(const char* text, std::weak_ptr<platform::Service> service)
      : id(bleobjects::uuid(text)), itsService(std::move(service)) {}
  const UUID& uuid() const override { return id; }
  DeviceServicePtr service() const override { return itsService.lock(); }
  std::optional<Bytes> value() const override { return currentValue; }
  bool isNotifying() const override { return notifies; }
  std::vector<DescriptorPtr> descriptors() const override { return knownDescriptors; }

  UUID id;
  std::weak_ptr<platform::Service> itsService;
  std::optional<Bytes> currentValue;
  bool notifies = false;
  std::vector<DescriptorPtr> knownDescriptors;
};

struct FakeService final : platform::Service, std::enable_shared_from_this<FakeService> {
  explicit FakeService(const char* text) : id(bleobjects::uuid(text)) {}
  const UUID& uuid() const override { return id; }
  std::vector<DeviceCharacteristicPtr> characteristics() const override { return known; }

  std::shared_ptr<FakeCharacteristic> add(const char* text) {
    auto characteristic = std::make_shared<FakeCharacteristic>(text, weak_from_this());
    known.push_back(characteristic);
    return characteristic;
  }

  UUID id;
  std::vector<DeviceCharacteristicPtr> known;
};

/// A device that answers nothing by itself: the test calls the delegate.
class FakePeripheral final : public platform::Peripheral {
 public:
  explicit FakePeripheral(const char* id = "11111111-2222-3333-4444-555555555555")
      : identifier_(uuid(id)) {}

  const UUID& identifier() const override { return identifier_; }
  std::optional<std::string> name() const override { return deviceName; }
  platform::PeripheralState state() const override { return linkState; }
  std::vector<DeviceServicePtr> services() const override { return known; }
  void setDelegate(std::weak_ptr<platform::PeripheralDelegate> newDelegate) override {
    delegate = std::move(newDelegate);
  }
  void discoverServices(const std::optional<std::vector<UUID>>& list) override {
    journal.push_back("discoverServices" + texts(list));
  }
  void discoverCharacteristics(const std::optional<std::vector<UUID>>& list,
                               const DeviceServicePtr& service) override {
    journal.push_back("discoverCharacteristics of " + service->uuid().text() + texts(list));
  }
  void discoverDescriptors(const DeviceCharacteristicPtr& of) override {
    journal.push_back("discoverDescriptors of " + of->uuid().text());
  }
  void readValueForCharacteristic(const DeviceCharacteristicPtr& of) override {
    journal.push_back("read " + of->uuid().text());
  }
  void writeValueForCharacteristic(const Bytes& data, const DeviceCharacteristicPtr& to,
                                   platform::WriteType type) override {
    journal.push_back((type == platform::WriteType::withResponse ? "request " : "command ") +
                      to->uuid().text() + " " + platform::hexText(data));
  }
  void setNotifyValue(bool enabled, const DeviceCharacteristicPtr& of) override {
    journal.push_back((enabled ? "notify " : "quiet ") + of->uuid().text());
  }
  void readValueForDescriptor(const DescriptorPtr& of) override {
    journal.push_back("readDescriptor " + of->uuid().text());
  }
  void writeValueForDescriptor(const Bytes& data, const DescriptorPtr& to) override {
    journal.push_back("writeDescriptor " + to->uuid().text() + " " + platform::hexText(data));
  }
  void readRSSI() override { journal.emplace_back("readRSSI"); }

  std::optional<std::string> deviceName = "MI Band 2";
  platform::PeripheralState linkState = platform::PeripheralState::disconnected;
  std::vector<DeviceServicePtr> known;
  std::weak_ptr<platform::PeripheralDelegate> delegate;
  Journal journal;

 private:
  static std::string texts(const std::optional<std::vector<UUID>>& list) {
    std::string text = list ? ":" : ": all";
    for (const auto& id : list.value_or(std::vector<UUID>())) {
      text += " " + id.text();
    }
    return text;
  }

  UUID identifier_;
};

/// The part of an identifier by which journals name a device.
inline std::string shortName(const platform::Peripheral& device) {
  return device.identifier().longText().substr(0, 8);
}

class FakeCentralManager final : public platform::CentralManager {
 public:
  platform::CentralState state() const override { return radioState; }
  void scanForPeripheralsWithServices(const std::optional<std::vector<UUID>>& services,
                                      const platform::Dictionary& options) override {
    journal.push_back("scan " + std::to_string(services ? services->size() : 0) + " " +
                      std::to_string(options.size()));
  }
  void stopScan() override { journal.emplace_back("stopScan"); }
  void connectPeripheral(const DevicePtr& device, const platform::Dictionary& options) override {
    journal.push_back("connect " + shortName(*device) + " " + std::to_string(options.size()));
  }
  void cancelPeripheralConnection(const DevicePtr& device) override {
    journal.push_back("cancel " + shortName(*device));
  }
  void endLeftoverLink(const DevicePtr& device) override {
    journal.push_back("end " + shortName(*device));
  }
  std::vector<DevicePtr> retrieveConnectedPeripheralsWithServices(
      const std::vector<UUID>& services) override {
    journal.push_back("retrieveConnected " + std::to_string(services.size()));
    return retrieved;
  }
  std::vector<DevicePtr> retrievePeripheralsWithIdentifiers(
      const std::vector<UUID>& identifiers) override {
    journal.push_back("retrieve " + std::to_string(identifiers.size()));
    return retrieved;
  }

  platform::CentralState radioState = platform::CentralState::unknown;
  std::vector<DevicePtr> retrieved;
  Journal journal;
};

class FakeRadio final : public platform::BluetoothRadio {
 public:
  std::unique_ptr<platform::CentralManager> makeCentralManager(
      std::weak_ptr<platform::CentralManagerDelegate> newDelegate, platform::Queue /*queue*/,
      const std::vector<UUID>& identifiers) override {
    delegate = std::move(newDelegate);
    storedIdentifiers = identifiers;
    auto made = std::make_unique<FakeCentralManager>();
    manager = made.get();
    return made;
  }

  std::weak_ptr<platform::CentralManagerDelegate> delegate;
  std::vector<UUID> storedIdentifiers;
  FakeCentralManager* manager = nullptr;  ///< of the central made last, which owns it
};

/// A session manager that writes down which of its operations were called. Its watchdogDisconnect
/// has nothing to do with the scan's.
class FakeSessionManager final : public YMSCBCentralManager {
 public:
  static std::shared_ptr<FakeSessionManager> create(
      const platform::Platform& platform, bool useStoredPeripherals,
      std::weak_ptr<platform::CentralManagerDelegate> delegate) {
    const std::shared_ptr<FakeSessionManager> central(
        new FakeSessionManager(platform, useStoredPeripherals, std::move(delegate)));
    central->init();
    return central;
  }

  /// Without the list of devices seen.
  static std::shared_ptr<FakeSessionManager> create(const platform::Platform& platform) {
    const std::shared_ptr<FakeSessionManager> central(new FakeSessionManager(platform));
    central->init();
    return central;
  }

  void handleFoundPeripheral(const DevicePtr& device) override {
    journal.push_back("found " + shortName(*device));
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
  explicit FakeSessionManager(const platform::Platform& platform)
      : YMSCBCentralManager(platform, {"MI Band 2", "Other"},
                            platform.runLoop.makeSerialQueue("radio"),
                            std::weak_ptr<platform::CentralManagerDelegate>()) {}
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
                                   const ErrorOrNone& error) override {
    notingRead(journal_, "handler " + characteristic->name())(characteristic->value(), error);
  }

 private:
  Journal& journal_;
};

/// A connected device with one service of two characteristics, known to the radio and declared to
/// the layer, but not yet bound to each other.
class BleObjectsTest : public testing::Test {
 protected:
  BleObjectsTest()
      : central(FakeSessionManager::create(phone.handle())),
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
