#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "platform/CentralManager.h"
#include "platform/linux/bluez/BluezDevice.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/simulated/RecordingLog.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedRunLoop.h"
#include "platform/simulated/SimulatedTimeZone.h"
#include "tests/platform/linux/bluez/EventRecorder.h"
#include "tests/platform/linux/bluez/FakeBluez.h"

namespace wrixel2::platform::bluez {

inline const std::string kHci0 = "/org/bluez/hci0";
inline const std::string kBandPath = kHci0 + "/dev_C0_01_02_03_04_05";
inline const std::string kTime = kBandPath + "/service0010/char0011";
inline const std::string kSteps = kBandPath + "/service0010/char0013";
inline const std::string kAuth = kBandPath + "/service0020/char0021";
inline const std::string kConnect = "dev_C0_01_02_03_04_05 Connect";
inline const std::string kDisconnect = "dev_C0_01_02_03_04_05 Disconnect";

/// A central manager over a bluetoothd that the test plays, on virtual time, with one adapter that
/// has power and a band below it that bluetoothd knows.
class BluezFixture : public testing::Test {
 public:
  /// Runs what is due; what the delegates were told since the last time.
  std::string events() {
    settle();
    return recorder->take();
  }
  /// Runs what is due; the calls since the last time.
  std::string calls() {
    settle();
    return bluez.takeCalls();
  }

 protected:
  BluezFixture() { playAnew(); }
  ~BluezFixture() override {
    manager.reset();
    loop.discardWork();
  }

  /// Everything as at first.
  void playAnew() {
    manager.reset();
    bluez.byHand.clear();
    bluez.clear();
    bluez.place(kHci0, kAdapterInterface, {{"Powered", true}, {"Discovering", false}});
    bluez.place(kBandPath, kDeviceInterface, band());
    placeGattObjects();
    recorder->react = nullptr;
    forget();
  }
  void makeManager(const std::vector<UUID>& storedIdentifiers = {},
                   const std::optional<std::string>& adapter = std::nullopt) {
    manager.reset();
    radio =
        std::make_unique<BluezRadio>([this] { return bluez.makeBus(); }, loop, clock, log, adapter);
    manager = radio->makeCentralManager(recorder, loop.makeSerialQueue("test"), storedIdentifiers);
    EXPECT_EQ(manager->state(), CentralState::unknown);
    EXPECT_TRUE(recorder->events.empty()) << "nothing is told inside the constructor";
    settle();
  }

  BluezFixture& settle() {
    loop.runUntilIdle();
    return *this;
  }
  /// Runs what is due and forgets it.
  void forget() {
    events();
    bluez.takeCalls();
  }

  static Dictionary band(const Dictionary& more = {}) {
    Dictionary device = more;
    device.merge(Dictionary{{"Address", "C0:01:02:03:04:05"},
                            {"AddressType", "random"},
                            {"Alias", "MI Band 2"},
                            {"Name", "MI Band 2"},
                            {"UUIDs", Array{"0000fee0-0000-1000-8000-00805f9b34fb"}},
                            {"Connected", false},
                            {"ServicesResolved", false}});
    return device;
  }
  void placeGattObjects() {
    const auto place = [this](const std::string& path, std::string_view interface,
                              std::string_view number) {
      bluez.place(path, interface,
                  {{"UUID", fmt::format("0000{}-0000-1000-8000-00805f9b34fb", number)}});
    };
    place(kBandPath + "/service0010", kServiceInterface, "fee0");
    place(kTime, kCharacteristicInterface, "2a2b");
    place(kSteps, kCharacteristicInterface, "ff07");
    place(kBandPath + "/service0020", kServiceInterface, "fee1");
    place(kAuth, kCharacteristicInterface, "ff09");
    place(kAuth + "/desc0023", kDescriptorInterface, "2902");
  }

  // --- what bluetoothd says, each as it happens: reply("Connect").events() ---

  BluezFixture& reply(std::string_view member, Array values = {}) {
    bluez.reply(member, std::move(values));
    return settle();
  }
  BluezFixture& fail(std::string_view member, std::string_view error, std::string_view text = "") {
    bluez.fail(member, error, text);
    return settle();
  }
  BluezFixture& setPower(bool isOn) {
    bluez.change(kHci0, kAdapterInterface, {{"Powered", isOn}});
    return settle();
  }
  BluezFixture& changeBand(const Dictionary& changed) {
    bluez.change(kBandPath, kDeviceInterface, changed);
    return settle();
  }
  BluezFixture& linkBecomes(bool isConnected) { return changeBand({{"Connected", isConnected}}); }
  BluezFixture& loseLink(const std::string& reason = "org.bluez.Reason.Timeout") {
    bluez.disconnected(kBandPath, reason);
    return linkBecomes(false);
  }
  BluezFixture& runFor(TimeInterval time) {
    loop.runFor(time);
    return *this;
  }

  // --- what is asked ---

  /// The manager's object for the band, with the recorder as its delegate.
  std::shared_ptr<Peripheral> bandPeripheral() {
    const auto known = manager->retrievePeripheralsWithIdentifiers({identifierOfDevice(band())});
    EXPECT_EQ(known.size(), 1U);
    known.front()->setDelegate(recorder);
    return known.front();
  }
  void askToConnect() {
    peripheral = bandPeripheral();
    manager->connectPeripheral(peripheral, {});
    settle();
  }
  /// Makes the manager and connects the band; the records begin anew.
  void connect() {
    makeManager();
    askToConnect();
    EXPECT_EQ(events(), "state 5, connected");
    EXPECT_EQ(calls(), kConnect);
  }
  /// And discovers everything.
  void discover() {
    connect();
    peripheral->discoverServices(std::nullopt);
    settle();
    for (const auto& service : peripheral->services()) {
      peripheral->discoverCharacteristics(std::nullopt, service);
    }
    EXPECT_EQ(events(),
              "services - fee0 fee1, characteristics fee0 - 2a2b ff07, "
              "characteristics fee1 - ff09");
  }
  std::shared_ptr<Characteristic> characteristic(std::string_view uuid) const {
    return characteristicOf(*peripheral, UUID::withString(uuid));
  }
  void read(std::string_view uuid) { peripheral->readValueForCharacteristic(characteristic(uuid)); }
  void write(std::string_view uuid, const Bytes& value, WriteType type = WriteType::withResponse) {
    peripheral->writeValueForCharacteristic(value, characteristic(uuid), type);
  }
  BluezFixture& setNotify(std::string_view uuid, bool isOn) {
    peripheral->setNotifyValue(isOn, characteristic(uuid));
    return *this;
  }

  simulated::SimulatedClock clock;
  simulated::SimulatedTimeZone zone;
  simulated::SimulatedRunLoop loop{clock, zone};
  simulated::RecordingLog log;
  FakeBluez bluez{loop};
  std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
  std::unique_ptr<BluezRadio> radio;
  std::unique_ptr<CentralManager> manager;
  std::shared_ptr<Peripheral> peripheral;
};

}  // namespace wrixel2::platform::bluez
