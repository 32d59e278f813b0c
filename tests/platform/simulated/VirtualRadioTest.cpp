#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "band/BandProfile.h"
#include "band/BandRecorder.h"
#include "band/VirtualBand.h"
#include "platform/AES.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "platform/simulated/VirtualRadio.h"
#include "tests/platform/linux/bluez/EventRecorder.h"

namespace wrixel2::platform::simulated {
namespace {

using namespace std::chrono_literals;
using Events = std::vector<std::string>;

class VirtualRadioTest : public ::testing::Test {
 protected:
  VirtualRadioTest() { platform_.radio.addBand(band_); }

  void makeManager() {
    manager_ = platform_.radio.makeCentralManager(
        host_, platform_.runLoop.makeSerialQueue("com.example.test"), {});
  }

  /// A manager that is powered on and knows the band's peripheral.
  void start() {
    makeManager();
    loop_.runUntilIdle();
    peripheral_ =
        manager_->retrievePeripheralsWithIdentifiers({VirtualRadio::identifierOf(*band_)}).at(0);
    peripheral_->setDelegate(host_);
    host_->events.clear();
  }

  void connect() {
    manager_->connectPeripheral(peripheral_, {});
    loop_.runFor(1s);
    ASSERT_EQ(peripheral_->state(), PeripheralState::connected);
    host_->events.clear();
  }

  void discoverAll() {
    peripheral_->discoverServices(std::nullopt);
    loop_.runFor(1s);
    for (const auto& service : peripheral_->services()) {
      peripheral_->discoverCharacteristics(std::nullopt, service);
    }
    loop_.runFor(1s);
    host_->events.clear();
  }

  /// Connected, everything discovered, authenticated.
  void startInUse() {
    start();
    connect();
    discoverAll();
    band_->setRandomSource([] { return band::VirtualBand::RandomNumber{1, 2, 3}; });
    const auto auth = characteristic(band::kAuthInfo);
    peripheral_->setNotifyValue(true, auth);
    write({0x02, 0x00}, auth);
    Bytes code{0x03, 0x00};
    const Bytes number{1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const auto encrypted =
        AES128EncryptedDataWithKey(number, md5(band::kDefaultPairingKey), platform_.log);
    code.insert(code.end(), encrypted->begin(), encrypted->end());
    write(code, auth);
    loop_.runFor(1s);
    ASSERT_EQ(band_->link(), band::BandLink::authenticated);
    host_->events.clear();
  }

  /// What is reported in so much time.
  Events after(TimeInterval time) {
    loop_.runFor(time);
    return std::exchange(host_->events, {});
  }
  void read(const std::shared_ptr<Characteristic>& from) {
    peripheral_->readValueForCharacteristic(from);
  }
  void write(const Bytes& value, const std::shared_ptr<Characteristic>& to,
             WriteType type = WriteType::withResponse) {
    peripheral_->writeValueForCharacteristic(value, to, type);
  }
  void command(const Bytes& value, const std::shared_ptr<Characteristic>& to) {
    write(value, to, WriteType::withoutResponse);
  }
  void scan() {
    manager_->scanForPeripheralsWithServices(std::nullopt,
                                             {{std::string(kScanOptionAllowDuplicates), true}});
  }

  std::shared_ptr<Characteristic> characteristic(const UUID& uuid) const {
    for (const auto& service : peripheral_->services()) {
      for (const auto& found : service->characteristics()) {
        if (found->uuid() == uuid) {
          return found;
        }
      }
    }
    ADD_FAILURE() << "not discovered: " << uuid.text();
    return nullptr;
  }

  /// As a discovery lists them.
  static std::string namesIn(const Service& service) {
    std::string names;
    for (const auto& each : service.characteristics()) {
      names += " " + each->uuid().text();
    }
    return names;
  }

  SimulatedPlatform platform_;
  SimulatedRunLoop& loop_ = platform_.runLoop;
  std::shared_ptr<band::VirtualBand> band_ =
      std::make_shared<band::VirtualBand>(platform_.handle());
  std::shared_ptr<bluez::EventRecorder> host_ = std::make_shared<bluez::EventRecorder>();
  std::unique_ptr<CentralManager> manager_;
  std::shared_ptr<Peripheral> peripheral_;
};

TEST_F(VirtualRadioTest, TheStateIsFirstReportedAfterConstruction) {
  platform_.radio.setState(CentralState::unauthorized);
  makeManager();
  EXPECT_EQ(manager_->state(), CentralState::unknown);
  EXPECT_TRUE(host_->events.empty());
  loop_.runUntilIdle();
  platform_.radio.setState(CentralState::unauthorized);
  platform_.radio.setState(CentralState::poweredOn);
  EXPECT_EQ(after(0s), (Events{"state 3", "state 5"}));
}

const std::string kBattery = band::kBatteryInfo.text();
const std::string kAuth = band::kAuthInfo.text();

/// What a host hears of the band: its name, the signal's strength, the manufacturer's entry, which
/// ends with the address, and the name that is advertised.
const std::string kFound =
    "found MI Band 2 -60 5701000000000000000000000000000000000000c80f10aabb0c MI Band 2";

TEST_F(VirtualRadioTest, AScanReportsOnceOrEachTimeAndOnlyWhatCanBeHeard) {
  start();
  manager_->scanForPeripheralsWithServices(std::vector{band::kAuthService},
                                           {{std::string(kScanOptionAllowDuplicates), true}});
  EXPECT_EQ(after(1s), Events{});  // the band advertises its control service alone
  scan();
  EXPECT_EQ(after(1s).size(), 10U);
  manager_->stopScan();
  EXPECT_EQ(after(1s), Events{});
  manager_->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(after(1s), Events{kFound});

  band_->setIsInRange(false);
  scan();
  EXPECT_EQ(after(1s), Events{});
  band_->setIsInRange(true);
  EXPECT_EQ(after(100ms), Events{kFound});
  platform_.radio.connectBySomebodyElse(*band_);
  EXPECT_EQ(after(1s), Events{});
}

TEST_F(VirtualRadioTest, AnAdvertisementOnItsWayIsNotDeliveredAfterTheScan) {
  start();
  host_->react = [this](const std::string&) { manager_->stopScan(); };
  const auto other = std::make_shared<band::VirtualBand>(platform_.handle(), "C8:0F:10:00:00:01");
  platform_.radio.addBand(other);
  scan();
  EXPECT_EQ(after(1s), Events{kFound});  // though two bands were heard at once
}

TEST_F(VirtualRadioTest, AConnectionTakesItsTimeAndEndsQuietlyWhenWeAsk) {
  start();
  manager_->connectPeripheral(peripheral_, {});
  manager_->connectPeripheral(peripheral_, {});
  EXPECT_EQ(peripheral_->state(), PeripheralState::connecting);
  EXPECT_EQ(after(120ms - 1us), Events{});
  EXPECT_EQ(after(1us), Events{"connected"});
  EXPECT_EQ(band_->link(), band::BandLink::connected);

  manager_->cancelPeripheralConnection(peripheral_);
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnecting);
  EXPECT_EQ(after(0s), Events{"disconnected -"});
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  EXPECT_EQ(band_->link(), band::BandLink::disconnected);

  // One that is asked for before the old end is delivered comes after it.
  connect();
  manager_->cancelPeripheralConnection(peripheral_);
  manager_->connectPeripheral(peripheral_, {});
  loop_.runUntilIdle();
  EXPECT_EQ(peripheral_->state(), PeripheralState::connecting);
  EXPECT_EQ(after(1s), (Events{"disconnected -", "connected"}));
}

TEST_F(VirtualRadioTest, ACancelledConnectionEndsInOneQuietDisconnection) {
  start();
  for (const TimeInterval onItsWay : {0ms, 119ms}) {
    manager_->connectPeripheral(peripheral_, {});
    loop_.runFor(onItsWay);
    manager_->cancelPeripheralConnection(peripheral_);
    manager_->cancelPeripheralConnection(peripheral_);
    EXPECT_EQ(after(10s), Events{"disconnected -"});
    EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  }
  // Made at once, cancelled before it was announced.
  platform_.radio.connectBySomebodyElse(*band_);
  manager_->connectPeripheral(peripheral_, {});
  manager_->cancelPeripheralConnection(peripheral_);
  EXPECT_EQ(after(10s), Events{"disconnected -"});
}

TEST_F(VirtualRadioTest, AConnectionToABandOutOfRangeWaitsForEver) {
  start();
  band_->setIsInRange(false);
  manager_->connectPeripheral(peripheral_, {});
  EXPECT_EQ(after(24h), Events{});
  EXPECT_EQ(loop_.pendingTimers(), 0U);
  band_->setIsInRange(true);
  loop_.runFor(60ms);
  band_->setIsInRange(false);  // gone again before it came about
  EXPECT_EQ(after(1h), Events{});
  band_->setIsInRange(true);
  EXPECT_EQ(after(120ms), Events{"connected"});
}

TEST_F(VirtualRadioTest, ALinkThatNobodyHereHasMadeIsEndedOnlyWhenThatIsAskedFor) {
  platform_.radio.connectBySomebodyElse(*band_);
  start();
  EXPECT_FALSE(band_->isAdvertising());
  manager_->endLeftoverLink(peripheral_);
  EXPECT_TRUE(band_->isAdvertising());
  connect();
  manager_->endLeftoverLink(peripheral_);
  EXPECT_EQ(after(0s), Events{}) << "one in use stays";
  EXPECT_FALSE(band_->isAdvertising());
}

TEST_F(VirtualRadioTest, AnUnclaimedLinkReadsDisconnectedAndAnswersEveryRequestWithAnError) {
  startInUse();
  const auto battery = characteristic(band::kBatteryInfo);
  const auto service = battery->service();
  const auto names = namesIn(*service);
  manager_->cancelPeripheralConnection(peripheral_);
  after(0s);
  platform_.radio.connectBySomebodyElse(*band_);
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  EXPECT_TRUE(
      manager_->retrieveConnectedPeripheralsWithServices({band::shortUUID(0x180F)}).empty());
  read(battery);
  command({1}, battery);
  write({1}, battery);
  peripheral_->setNotifyValue(true, battery);
  peripheral_->discoverServices(std::nullopt);
  peripheral_->discoverCharacteristics(std::nullopt, service);
  peripheral_->discoverDescriptors(battery);
  peripheral_->readRSSI();
  EXPECT_TRUE(host_->events.empty());
  EXPECT_EQ(after(1min), (Events{"value " + kBattery + " error 3", "written " + kBattery + " 3",
                                 "notifying " + kBattery + " no 3", "services 3",
                                 "characteristics fee0 3" + names,
                                 "descriptors " + kBattery + " 3 0", "rssi 3"}));
}

TEST_F(VirtualRadioTest, LosingPowerEndsLinksQuietlyBeforeTheStateIsReported) {
  startInUse();
  scan();
  read(characteristic(band::kBatteryInfo));
  write({0x01}, characteristic(band::kAlertLevel));
  host_->react = [this](const std::string& event) {
    EXPECT_EQ(manager_->state() == CentralState::poweredOn, event != "state 4");
  };
  platform_.radio.setState(CentralState::poweredOff);
  EXPECT_EQ(after(1min), (Events{"value " + kBattery + " error 3", "written 2a06 3",
                                 "disconnected -", "state 4"}));
  EXPECT_EQ(band_->link(), band::BandLink::disconnected);

  // The scan is over, too.
  host_->react = nullptr;
  scan();
  platform_.radio.setState(CentralState::poweredOn);
  EXPECT_EQ(after(1min), Events{"state 5"});

  // A connection that waits is answered.
  band_->setIsInRange(false);
  manager_->connectPeripheral(peripheral_, {});
  platform_.radio.setState(CentralState::poweredOff);
  band_->setIsInRange(true);
  EXPECT_EQ(after(1min), (Events{"disconnected -", "state 4"}));
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
}

TEST_F(VirtualRadioTest, WhatIsAskedOfALinkIsAnsweredInOrderOneExchangeAfterTheOther) {
  startInUse();
  const auto parameters = characteristic(band::kConnectionParameters);
  read(parameters);
  command({0x27, 0, 0x31, 0, 0, 0, 0xF4, 0x01}, parameters);
  read(parameters);
  write({0x00}, parameters);
  peripheral_->discoverDescriptors(parameters);
  EXPECT_EQ(after(30ms + 8ms + 30ms - 1us), Events{"value 2a04 180028000000f401"});
  EXPECT_EQ(after(1us), Events{"value 2a04 270031000000f401"});
  EXPECT_EQ(after(60ms), (Events{"written 2a04 13", "descriptors 2a04 - 1"}));
  const auto descriptor = parameters->descriptors().at(0);
  EXPECT_EQ(descriptor->uuid().text(), "2902");
  peripheral_->readValueForDescriptor(descriptor);
  peripheral_->writeValueForDescriptor({1, 0}, descriptor);
  peripheral_->readRSSI();
  EXPECT_EQ(after(1s), (Events{"descriptor 2902 -", "descriptor written 2902 3", "rssi -"}));

  // A value is that of its own callback though the next has arrived.
  peripheral_->setNotifyValue(true, parameters);
  after(1s);
  band_->setConnectionParameters({1});
  band_->setConnectionParameters({2});
  EXPECT_EQ(after(1s), (Events{"value 2a04 0100000000000000", "value 2a04 0200000000000000"}));
}

TEST_F(VirtualRadioTest, DiscoveryFindsWhatWasAskedForAndKeepsItsObjects) {
  start();
  connect();
  peripheral_->discoverServices(std::vector{band::kHeartRateService, band::kAuthService});
  EXPECT_EQ(after(1s), Events{"services - fee1 180d"});
  const auto auth = peripheral_->services().at(0);
  EXPECT_EQ(auth->uuid(), band::kAuthService);
  peripheral_->discoverServices(std::nullopt);
  peripheral_->discoverCharacteristics(std::vector{band::kAuthInfo}, auth);
  peripheral_->discoverCharacteristics(std::vector{band::kAlertLevel}, auth);
  EXPECT_EQ(after(1s),
            (Events{"services - fee1 180d fee0 1811 1802", "characteristics fee1 - " + kAuth,
                    "characteristics fee1 - " + kAuth}));
  EXPECT_EQ(characteristic(band::kAuthInfo)->service(), auth);
  for (const auto& service : peripheral_->services()) {
    peripheral_->discoverCharacteristics(std::nullopt, service);
  }
  EXPECT_EQ(after(1s).size(), 5U);
  // Eleven names share ten characteristics of the control service.
  EXPECT_EQ(characteristic(band::kBatteryInfo)->service()->characteristics().size(), 10U);
}

TEST_F(VirtualRadioTest, ObjectsOfAnEarlierLinkAreRefusedInTheOrderOfTheRequests) {
  startInUse();
  const auto stale = characteristic(band::kBatteryInfo);
  const auto staleService = stale->service();
  const auto names = namesIn(*staleService);
  manager_->cancelPeripheralConnection(peripheral_);
  loop_.runUntilIdle();
  EXPECT_EQ(stale->service(), nullptr);
  connect();
  peripheral_->readRSSI();
  read(stale);
  command({1}, stale);
  peripheral_->discoverCharacteristics(std::nullopt, staleService);
  EXPECT_EQ(after(1s),
            (Events{"rssi -", "value " + kBattery + " error 2", "characteristics fee0 2" + names}));
}

TEST_F(VirtualRadioTest, TheEndOfALinkAnswersWhatWaitsThenReportsItsCode) {
  for (const long code : {7L, 6L}) {
    SCOPED_TRACE(code);
    startInUse();
    const auto battery = characteristic(band::kBatteryInfo);
    read(battery);
    read(battery);
    command({0}, characteristic(band::kAlertLevel));
    peripheral_->setNotifyValue(true, battery);
    EXPECT_EQ(after(30ms).size(), 1U);
    EXPECT_EQ(band_->drop(code), std::nullopt);
    band::BandRecorder recorder(*band_);
    // Asked for before the end is delivered: answered before it as well.
    host_->react = [&](const std::string& event) {
      if (event.starts_with("notifying")) {
        host_->react = nullptr;
        read(battery);
      }
    };
    const std::string error = std::to_string(code);
    EXPECT_EQ(after(1min), (Events{"value " + kBattery + " error " + error,
                                   "notifying " + kBattery + " no " + error,
                                   "value " + kBattery + " error 3", "disconnected " + error}));
    EXPECT_TRUE(recorder.writes().empty());
    EXPECT_TRUE(band_->isAdvertising());
    EXPECT_TRUE(band_->drop(code).has_value());
    manager_.reset();
  }
}

TEST_F(VirtualRadioTest, ANotificationOnItsWayIsLostWithItsLink) {
  startInUse();
  peripheral_->setNotifyValue(true, characteristic(band::kButtonPress));
  loop_.runFor(1s);
  platform_.radio.timings.notification = 1min;
  band_->pressButton();
  manager_->cancelPeripheralConnection(peripheral_);
  connect();
  discoverAll();
  EXPECT_EQ(after(1h), Events{});
}

TEST_F(VirtualRadioTest, TheManagerMayBeDestroyedInsideAnyOfItsCallbacks) {
  const std::function<void()> stages[] = {[] {}, [this] { scan(); },
                                          [this] {
                                            manager_->stopScan();
                                            peripheral_ = host_->found.back();
                                            peripheral_->setDelegate(host_);
                                            manager_->connectPeripheral(peripheral_, {});
                                          },
                                          [this] {
                                            peripheral_->discoverServices(std::nullopt);
                                            peripheral_->readRSSI();
                                          },
                                          [this] {
                                            discoverAll();
                                            read(characteristic(band::kBatteryInfo));
                                            peripheral_->readRSSI();
                                          }};
  const char* const moments[] = {"state", "found", "connected", "services", "value"};
  for (const auto& moment : moments) {
    SCOPED_TRACE(moment);
    host_->react = nullptr;
    makeManager();
    host_->react = [&](const std::string& event) {
      if (event.starts_with(moment)) {
        manager_.reset();
      }
    };
    Events last;
    for (const auto& stage : stages) {
      if (manager_ != nullptr) {
        stage();
        last = after(1s);
      }
    }
    ASSERT_EQ(manager_, nullptr);
    EXPECT_TRUE(last.back().starts_with(moment));
    EXPECT_EQ(band_->link(), band::BandLink::disconnected);
    // What outlives it is harmless.
    if (peripheral_ != nullptr) {
      EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
      peripheral_->readRSSI();
    }
    loop_.runFor(1min);
  }
}

TEST_F(VirtualRadioTest, ADelegateThatIsGoneIsNotCalled) {
  startInUse();
  peripheral_->readRSSI();
  host_.reset();
  EXPECT_EQ(band_->drop(7), std::nullopt);
  loop_.runFor(1min);
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
}

}  // namespace
}  // namespace wrixel2::platform::simulated
