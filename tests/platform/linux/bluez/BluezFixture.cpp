#include "tests/platform/linux/bluez/BluezFixture.h"

#include <utility>

#include <fmt/format.h>

#include "platform/linux/bluez/BluezDevice.h"

namespace wrixel2::platform::bluez {
BluezFixture::BluezFixture() {
  bluez.place(
      kHci0, kAdapterInterface,
      {{"Powered", true}, {"Discovering", false}, {"Roles", Array{"central", "peripheral"}}});
  bluez.place(kBandPath, kDeviceInterface, band());
  placeGattObjects();
}

BluezFixture::~BluezFixture() {
  manager.reset();
  loop.discardWork();
}

Dictionary BluezFixture::band(const Dictionary& more) {
  Dictionary device = {{"Address", "C0:01:02:03:04:05"},
                       {"AddressType", "random"},
                       {"Alias", "MI Band 2"},
                       {"Name", "MI Band 2"},
                       {"UUIDs", Array{"0000fee0-0000-1000-8000-00805f9b34fb"}},
                       {"Connected", false},
                       {"ServicesResolved", false}};
  for (const auto& [name, value] : more) {
    device.insert_or_assign(name, value);
  }
  return device;
}

void BluezFixture::placeGattObjects() {
  const auto withUUID = [](std::string_view number) {
    return Dictionary{{"UUID", fmt::format("0000{}-0000-1000-8000-00805f9b34fb", number)}};
  };
  bluez.place(kBandPath + "/service0010", kServiceInterface, withUUID("fee0"));
  bluez.place(kTime, kCharacteristicInterface, withUUID("2a2b"));
  bluez.place(kSteps, kCharacteristicInterface, withUUID("ff07"));
  bluez.place(kBandPath + "/service0020", kServiceInterface, withUUID("fee1"));
  bluez.place(kAuth, kCharacteristicInterface, withUUID("ff09"));
  bluez.place(kAuth + "/desc0023", kDescriptorInterface, withUUID("2902"));
}

void BluezFixture::makeManager(const std::vector<UUID>& storedIdentifiers,
                               const std::optional<std::string>& adapter) {
  manager.reset();
  radio =
      std::make_unique<BluezRadio>([this] { return bluez.makeBus(); }, loop, clock, log, adapter);
  manager = radio->makeCentralManager(recorder, loop.makeSerialQueue("test"), storedIdentifiers);
  EXPECT_EQ(manager->state(), CentralState::unknown);
}

Events BluezFixture::events() {
  settle();
  return std::exchange(recorder->events, {});
}

Calls BluezFixture::calls() {
  settle();
  return bluez.takeCalls();
}

std::shared_ptr<Peripheral> BluezFixture::bandPeripheral() {
  const auto known = manager->retrievePeripheralsWithIdentifiers({identifierOfDevice(band())});
  EXPECT_EQ(known.size(), 1U);
  known.front()->setDelegate(recorder);
  return known.front();
}

void BluezFixture::connect() {
  makeManager();
  settle();
  peripheral = bandPeripheral();
  manager->connectPeripheral(peripheral, {});
  settle();
  EXPECT_EQ(events(), (Events{"state 5", "connected"}));
  EXPECT_EQ(calls(), (Calls{"dev_C0_01_02_03_04_05 Connect"}));
}

void BluezFixture::discover() {
  connect();
  peripheral->discoverServices(std::nullopt);
  settle();
  for (const auto& service : peripheral->services()) {
    peripheral->discoverCharacteristics(std::nullopt, service);
  }
  EXPECT_EQ(events(), (Events{"services - fee0 fee1", "characteristics fee0 - 2a2b ff07",
                              "characteristics fee1 - ff09"}));
}

std::shared_ptr<Characteristic> BluezFixture::characteristic(std::string_view uuid) const {
  for (const auto& service : peripheral->services()) {
    for (const auto& one : service->characteristics()) {
      if (one->uuid() == UUID::withString(uuid)) {
        return one;
      }
    }
  }
  return nullptr;
}

}  // namespace wrixel2::platform::bluez
