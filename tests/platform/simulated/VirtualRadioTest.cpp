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

namespace wrixel2::platform::simulated {
namespace {

using namespace std::chrono_literals;
using Events = std::vector<std::string>;

std::string codeText(const ErrorOrNone& error) {
  return error ? fmt::format("error {}", error->code) : "ok";
}

/// Writes down what the radio reports, and can do something at a report.
class Host final : public CentralManagerDelegate, public PeripheralDelegate {
 public:
  Events events;
  std::function<void(const std::string&)> onEvent;
  std::vector<std::pair<Dictionary, int>> advertisements;
  std::shared_ptr<Peripheral> peripheral;

  void note(std::string event) {
    events.push_back(event);
    if (onEvent) {
      // The action may put another in its place.
      const auto action = onEvent;
      action(event);
    }
  }

  void centralManagerDidUpdateState(CentralManager& central) override {
    note(fmt::format("state {}", static_cast<int>(central.state())));
  }
  void centralManagerDidDiscoverPeripheral(CentralManager&,
                                           const std::shared_ptr<Peripheral>& found,
                                           const Dictionary& data, int rssi) override {
    peripheral = found;
    advertisements.emplace_back(data, rssi);
    note("discovered");
  }
  void centralManagerDidConnectPeripheral(CentralManager&,
                                          const std::shared_ptr<Peripheral>& which) override {
    EXPECT_EQ(which->state(), PeripheralState::connected);
    note("connected");
  }
  void centralManagerDidDisconnectPeripheral(CentralManager&,
                                             const std::shared_ptr<Peripheral>& which,
                                             const ErrorOrNone& error) override {
    EXPECT_NE(which->state(), PeripheralState::connected);
    EXPECT_TRUE(which->services().empty());
    note("disconnected " + codeText(error));
  }
  void centralManagerDidFailToConnectPeripheral(CentralManager&, const std::shared_ptr<Peripheral>&,
                                                const ErrorOrNone& error) override {
    note("failed " + codeText(error));
  }

  void peripheralDidDiscoverServices(const std::shared_ptr<Peripheral>& which,
                                     const ErrorOrNone& error) override {
    note(fmt::format("services {} {}", which->services().size(), codeText(error)));
  }
  void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<Peripheral>&,
                                                      const std::shared_ptr<Service>& service,
                                                      const ErrorOrNone& error) override {
    note(fmt::format("characteristics {} of {} {}", service->characteristics().size(),
                     service->uuid().text(), codeText(error)));
  }
  void peripheralDidDiscoverDescriptorsForCharacteristic(
      const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>& characteristic,
      const ErrorOrNone& error) override {
    note(fmt::format("descriptors {} {}", characteristic->descriptors().size(), codeText(error)));
  }
  void peripheralDidUpdateValueForCharacteristic(
      const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>& characteristic,
      const ErrorOrNone& error) override {
    note(error ? "value " + codeText(error) : "value " + hexText(*characteristic->value()));
  }
  void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<Peripheral>&,
                                             const std::shared_ptr<Descriptor>&,
                                             const ErrorOrNone& error) override {
    note("descriptor read " + codeText(error));
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>& characteristic,
      const ErrorOrNone& error) override {
    note(fmt::format("notifying {} {}", characteristic->isNotifying(), codeText(error)));
  }
  void peripheralDidWriteValueForCharacteristic(const std::shared_ptr<Peripheral>&,
                                                const std::shared_ptr<Characteristic>&,
                                                const ErrorOrNone& error) override {
    note("written " + codeText(error));
  }
  void peripheralDidWriteValueForDescriptor(const std::shared_ptr<Peripheral>&,
                                            const std::shared_ptr<Descriptor>&,
                                            const ErrorOrNone& error) override {
    note("descriptor written " + codeText(error));
  }
  void peripheralDidUpdateRSSI(const std::shared_ptr<Peripheral>&,
                               const ErrorOrNone& error) override {
    note("rssi " + codeText(error));
  }
};

class VirtualRadioTest : public ::testing::Test {
 protected:
  VirtualRadioTest() { platform_.radio.addBand(band_); }

  void makeManager(const std::vector<UUID>& storedIdentifiers = {}) {
    manager_ = platform_.radio.makeCentralManager(
        host_, platform_.runLoop.makeSerialQueue("com.example.test"), storedIdentifiers);
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
    peripheral_->writeValueForCharacteristic({0x02, 0x00}, auth, WriteType::withResponse);
    Bytes code{0x03, 0x00};
    const Bytes number{1, 2, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
    const auto encrypted =
        AES128EncryptedDataWithKey(number, md5(band::kDefaultPairingKey), platform_.log);
    code.insert(code.end(), encrypted->begin(), encrypted->end());
    peripheral_->writeValueForCharacteristic(code, auth, WriteType::withResponse);
    loop_.runFor(1s);
    ASSERT_EQ(band_->link(), band::BandLink::authenticated);
    host_->events.clear();
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

  static Dictionary duplicates() { return {{std::string(kScanOptionAllowDuplicates), true}}; }

  SimulatedPlatform platform_;
  SimulatedRunLoop& loop_ = platform_.runLoop;
  std::shared_ptr<band::VirtualBand> band_ =
      std::make_shared<band::VirtualBand>(platform_.handle());
  std::shared_ptr<Host> host_ = std::make_shared<Host>();
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
  loop_.runUntilIdle();
  EXPECT_EQ(host_->events, (Events{"state 3", "state 5"}));
}

TEST_F(VirtualRadioTest, NothingWakesTheLoopWhileNothingHappens) {
  start();
  EXPECT_EQ(loop_.pendingTimers(), 0U);
  manager_->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(loop_.pendingTimers(), 1U);
  loop_.runFor(100ms);  // reported once: nothing more to say
  EXPECT_EQ(loop_.pendingTimers(), 0U);
  manager_->stopScan();
  connect();
  EXPECT_EQ(loop_.pendingTimers(), 0U);
}

TEST_F(VirtualRadioTest, AnAdvertisementCarriesTheRawManufacturerEntryAndTheName) {
  start();
  manager_->scanForPeripheralsWithServices(std::vector{band::kAuthService, band::kControlService},
                                           {});
  loop_.runFor(1s);
  ASSERT_EQ(host_->advertisements.size(), 1U);
  const auto& [data, rssi] = host_->advertisements[0];
  EXPECT_EQ(
      data.at(std::string(kAdvDataManufacturerData)),
      Value(Bytes{0x57, 0x01, 0,    0,    0,    0,   0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0,  //
                  0xC8, 0x0F, 0x10, 0xAA, 0xBB, 0x0C}));
  EXPECT_EQ(data.at(std::string(kAdvDataLocalName)), Value("MI Band 2"));
  EXPECT_EQ(rssi, -60);
  EXPECT_EQ(host_->peripheral, peripheral_);
  EXPECT_EQ(peripheral_->name(), "MI Band 2");
}

TEST_F(VirtualRadioTest, AScanReportsOnceOrEachTimeAndOnlyWhatOffersTheServices) {
  start();
  manager_->scanForPeripheralsWithServices(std::vector{band::kAuthService}, duplicates());
  loop_.runFor(1s);
  EXPECT_TRUE(host_->events.empty());  // the band advertises its control service alone

  manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
  loop_.runFor(1s);
  EXPECT_EQ(host_->events.size(), 10U);
  manager_->stopScan();
  loop_.runFor(1s);
  EXPECT_EQ(host_->events.size(), 10U);

  manager_->scanForPeripheralsWithServices(std::nullopt, {});
  loop_.runFor(1s);
  EXPECT_EQ(host_->events.size(), 11U);
}

TEST_F(VirtualRadioTest, AnAdvertisementOnItsWayIsNotDeliveredAfterTheScan) {
  start();
  host_->onEvent = [this](const std::string&) { manager_->stopScan(); };
  const auto other = std::make_shared<band::VirtualBand>(platform_.handle(), "C8:0F:10:00:00:01");
  platform_.radio.addBand(other);
  manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
  loop_.runFor(1s);
  EXPECT_EQ(host_->events, Events{"discovered"});  // though two bands were heard at once
}

TEST_F(VirtualRadioTest, OnlyABandInRangeWithoutALinkAdvertises) {
  start();
  band_->setIsInRange(false);
  manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
  loop_.runFor(1s);
  EXPECT_TRUE(host_->events.empty());
  band_->setIsInRange(true);
  loop_.runFor(100ms);
  EXPECT_EQ(host_->events, Events{"discovered"});
  platform_.radio.connectBySomebodyElse(*band_);
  host_->events.clear();
  loop_.runFor(1s);
  EXPECT_TRUE(host_->events.empty());
}

TEST_F(VirtualRadioTest, AConnectionTakesItsTimeAndEndsQuietlyWhenWeAsk) {
  start();
  manager_->connectPeripheral(peripheral_, {});
  manager_->connectPeripheral(peripheral_, {});
  EXPECT_EQ(peripheral_->state(), PeripheralState::connecting);
  loop_.runFor(120ms - 1us);
  EXPECT_TRUE(host_->events.empty());
  loop_.runFor(1us);
  EXPECT_EQ(host_->events, Events{"connected"});
  EXPECT_EQ(band_->link(), band::BandLink::connected);

  manager_->cancelPeripheralConnection(peripheral_);
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnecting);
  loop_.runUntilIdle();
  EXPECT_EQ(host_->events, (Events{"connected", "disconnected ok"}));
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  EXPECT_EQ(band_->link(), band::BandLink::disconnected);
}

TEST_F(VirtualRadioTest, ACancelledConnectionEndsInOneQuietDisconnection) {
  const struct {
    const char* name;
    TimeInterval before;  ///< the cancellation
  } cases[] = {{"at once", 0ms}, {"on its way", 119ms}};
  start();
  for (const auto& test : cases) {
    SCOPED_TRACE(test.name);
    host_->events.clear();
    manager_->connectPeripheral(peripheral_, {});
    loop_.runFor(test.before);
    manager_->cancelPeripheralConnection(peripheral_);
    manager_->cancelPeripheralConnection(peripheral_);
    loop_.runFor(10s);
    EXPECT_EQ(host_->events, Events{"disconnected ok"});
    EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  }
  // Made at once, cancelled before it was announced.
  host_->events.clear();
  platform_.radio.connectBySomebodyElse(*band_);
  manager_->connectPeripheral(peripheral_, {});
  manager_->cancelPeripheralConnection(peripheral_);
  loop_.runFor(10s);
  EXPECT_EQ(host_->events, Events{"disconnected ok"});
}

TEST_F(VirtualRadioTest, AConnectionAskedForBeforeTheOldEndIsDeliveredComesAfterIt) {
  start();
  connect();
  manager_->cancelPeripheralConnection(peripheral_);
  manager_->connectPeripheral(peripheral_, {});
  loop_.runUntilIdle();
  EXPECT_EQ(peripheral_->state(), PeripheralState::connecting);
  loop_.runFor(1s);
  EXPECT_EQ(host_->events, (Events{"disconnected ok", "connected"}));
}

TEST_F(VirtualRadioTest, AConnectionToABandOutOfRangeWaitsForEver) {
  start();
  band_->setIsInRange(false);
  manager_->connectPeripheral(peripheral_, {});
  loop_.runFor(24h);
  EXPECT_TRUE(host_->events.empty());
  EXPECT_EQ(loop_.pendingTimers(), 0U);
  band_->setIsInRange(true);
  loop_.runFor(60ms);
  band_->setIsInRange(false);  // gone again before it came about
  loop_.runFor(1h);
  EXPECT_TRUE(host_->events.empty());
  band_->setIsInRange(true);
  loop_.runFor(120ms);
  EXPECT_EQ(host_->events, Events{"connected"});
}

TEST_F(VirtualRadioTest, AFailedConnectionIsReportedWithItsError) {
  start();
  platform_.radio.failNextConnect({bluetooth_error::connectionFailed, "No"});
  manager_->connectPeripheral(peripheral_, {});
  loop_.runFor(1s);
  EXPECT_EQ(host_->events, Events{"failed error 10"});
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  connect();
  platform_.radio.setState(CentralState::poweredOff);
  loop_.runUntilIdle();
  host_->events.clear();
  manager_->connectPeripheral(peripheral_, {});
  loop_.runUntilIdle();
  EXPECT_EQ(host_->events, Events{"failed error 10"});
}

TEST_F(VirtualRadioTest, ALinkOfSomebodyElseIsFoundReadsDisconnectedAndServesUsAtOnce) {
  start();
  platform_.radio.connectBySomebodyElse(*band_);
  EXPECT_TRUE(
      manager_->retrieveConnectedPeripheralsWithServices({band::shortUUID(0x180F)}).empty());
  const auto connected =
      manager_->retrieveConnectedPeripheralsWithServices({band::kHeartRateService});
  ASSERT_EQ(connected, std::vector{peripheral_});
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
  manager_->connectPeripheral(peripheral_, {});
  loop_.runUntilIdle();  // no time passes
  EXPECT_EQ(host_->events, Events{"connected"});
  platform_.radio.respondsToRetrieveConnectedPeripherals = false;
  EXPECT_FALSE(manager_->respondsToRetrieveConnectedPeripherals());
}

TEST_F(VirtualRadioTest, OnlyALeftOverLinkOfOursIsEndedBeforePoweredOnIsReported) {
  for (const bool isOurs : {true, false}) {
    SCOPED_TRACE(isOurs);
    platform_.radio.connectBySomebodyElse(*band_);
    host_->events.clear();
    host_->onEvent = [&](const std::string& event) {
      EXPECT_EQ(event, "state 5");
      EXPECT_EQ(band_->isAdvertising(), isOurs);
    };
    makeManager(isOurs ? std::vector{VirtualRadio::identifierOf(*band_)} : std::vector<UUID>{});
    loop_.runUntilIdle();
    EXPECT_EQ(host_->events.size(), 1U);
  }
}

TEST_F(VirtualRadioTest, AnUnclaimedLinkReadsDisconnectedAndAnswersEveryRequestWithAnError) {
  startInUse();
  const auto battery = characteristic(band::kBatteryInfo);
  const auto service = battery->service();
  manager_->cancelPeripheralConnection(peripheral_);
  loop_.runUntilIdle();
  platform_.radio.connectBySomebodyElse(*band_);
  host_->events.clear();
  peripheral_->readValueForCharacteristic(battery);
  peripheral_->writeValueForCharacteristic({1}, battery, WriteType::withoutResponse);
  peripheral_->writeValueForCharacteristic({1}, battery, WriteType::withResponse);
  peripheral_->setNotifyValue(true, battery);
  peripheral_->discoverServices(std::nullopt);
  peripheral_->discoverCharacteristics(std::nullopt, service);
  peripheral_->discoverDescriptors(battery);
  peripheral_->readRSSI();
  EXPECT_TRUE(host_->events.empty());
  loop_.runFor(1min);
  EXPECT_EQ(host_->events, (Events{"value error 3", "written error 3", "notifying false error 3",
                                   "services 0 error 3", "characteristics 10 of fee0 error 3",
                                   "descriptors 0 error 3", "rssi error 3"}));
}

TEST_F(VirtualRadioTest, LosingPowerEndsLinksQuietlyBeforeTheStateIsReported) {
  startInUse();
  const auto battery = characteristic(band::kBatteryInfo);
  manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
  peripheral_->readValueForCharacteristic(battery);
  peripheral_->writeValueForCharacteristic({0x01}, characteristic(band::kAlertLevel),
                                           WriteType::withResponse);
  host_->onEvent = [this](const std::string& event) {
    EXPECT_EQ(manager_->state() == CentralState::poweredOn, event != "state 4");
  };
  platform_.radio.setState(CentralState::poweredOff);
  loop_.runFor(1min);
  EXPECT_EQ(host_->events,
            (Events{"value error 3", "written error 3", "disconnected ok", "state 4"}));
  EXPECT_EQ(band_->link(), band::BandLink::disconnected);

  // The scan is over, too.
  host_->onEvent = nullptr;
  host_->events.clear();
  manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
  platform_.radio.setState(CentralState::poweredOn);
  loop_.runFor(1min);
  EXPECT_EQ(host_->events, Events{"state 5"});
}

TEST_F(VirtualRadioTest, LosingPowerAnswersAConnectionThatWaits) {
  start();
  band_->setIsInRange(false);
  manager_->connectPeripheral(peripheral_, {});
  platform_.radio.setState(CentralState::poweredOff);
  band_->setIsInRange(true);
  loop_.runFor(1min);
  EXPECT_EQ(host_->events, (Events{"disconnected ok", "state 4"}));
  EXPECT_EQ(peripheral_->state(), PeripheralState::disconnected);
}

TEST_F(VirtualRadioTest, WhatIsAskedOfALinkIsAnsweredInOrderOneExchangeAfterTheOther) {
  startInUse();
  band_->setHeartRate(0);
  const auto parameters = characteristic(band::kConnectionParameters);
  const Bytes low{0x27, 0, 0x31, 0, 0, 0, 0xF4, 0x01};
  peripheral_->readValueForCharacteristic(parameters);
  peripheral_->writeValueForCharacteristic(low, parameters, WriteType::withoutResponse);
  peripheral_->readValueForCharacteristic(parameters);
  peripheral_->writeValueForCharacteristic({0x00}, parameters, WriteType::withResponse);
  peripheral_->discoverDescriptors(parameters);
  loop_.runFor(30ms + 8ms + 30ms - 1us);
  EXPECT_EQ(host_->events, Events{"value 180028000000f401"});
  loop_.runFor(1us);
  EXPECT_EQ(host_->events.back(), "value 270031000000f401");
  loop_.runFor(60ms);
  EXPECT_EQ(host_->events, (Events{"value 180028000000f401", "value 270031000000f401",
                                   "written error 13", "descriptors 1 ok"}));
  EXPECT_EQ(parameters->descriptors().at(0)->uuid().text(), "2902");
  host_->events.clear();
  peripheral_->readValueForDescriptor(parameters->descriptors().at(0));
  peripheral_->writeValueForDescriptor({1, 0}, parameters->descriptors().at(0));
  peripheral_->readRSSI();
  loop_.runFor(1s);
  EXPECT_EQ(host_->events, (Events{"descriptor read ok", "descriptor written error 3", "rssi ok"}));
}

TEST_F(VirtualRadioTest, AValueIsThatOfItsOwnCallbackThoughTheNextHasArrived) {
  startInUse();
  const auto steps = characteristic(band::kRealtimeSteps);
  peripheral_->setNotifyValue(true, steps);
  loop_.runFor(1s);
  host_->events.clear();
  band_->setSteps(1);
  band_->setSteps(2);
  loop_.runFor(1s);
  EXPECT_EQ(host_->events,
            (Events{"value 0c010000000000000000000000", "value 0c020000000000000000000000"}));
}

TEST_F(VirtualRadioTest, DiscoveryFindsWhatWasAskedForAndKeepsItsObjects) {
  start();
  connect();
  peripheral_->discoverServices(std::vector{band::kHeartRateService, band::kAuthService});
  loop_.runFor(1s);
  ASSERT_EQ(peripheral_->services().size(), 2U);
  const auto auth = peripheral_->services()[0];
  EXPECT_EQ(auth->uuid(), band::kAuthService);
  peripheral_->discoverServices(std::nullopt);
  peripheral_->discoverCharacteristics(std::vector{band::kAuthInfo}, auth);
  peripheral_->discoverCharacteristics(std::vector{band::kAlertLevel}, auth);
  loop_.runFor(1s);
  EXPECT_EQ(host_->events, (Events{"services 2 ok", "services 5 ok", "characteristics 1 of fee1 ok",
                                   "characteristics 1 of fee1 ok"}));
  EXPECT_EQ(characteristic(band::kAuthInfo)->service(), auth);
  discoverAll();
  // Eleven names share ten characteristics.
  for (const auto& service : peripheral_->services()) {
    EXPECT_EQ(service->characteristics().size(),
              service->uuid() == band::kControlService ? 10U
              : service->uuid() == band::kAlertNotificationService ||
                      service->uuid() == band::kHeartRateService
                  ? 2U
                  : 1U);
  }
}

TEST_F(VirtualRadioTest, ObjectsOfAnEarlierLinkAreRefusedInTheOrderOfTheRequests) {
  startInUse();
  const auto stale = characteristic(band::kBatteryInfo);
  const auto staleService = stale->service();
  manager_->cancelPeripheralConnection(peripheral_);
  loop_.runUntilIdle();
  EXPECT_EQ(stale->service(), nullptr);
  connect();
  peripheral_->readRSSI();
  peripheral_->readValueForCharacteristic(stale);
  peripheral_->writeValueForCharacteristic({1}, stale, WriteType::withoutResponse);
  peripheral_->discoverCharacteristics(std::nullopt, staleService);
  loop_.runFor(1s);
  EXPECT_EQ(host_->events,
            (Events{"rssi ok", "value error 2", "characteristics 10 of fee0 error 2"}));
}

TEST_F(VirtualRadioTest, TheEndOfALinkAnswersWhatWaitsThenReportsItsCode) {
  for (const long code : {7L, 6L}) {
    SCOPED_TRACE(code);
    startInUse();
    const auto battery = characteristic(band::kBatteryInfo);
    peripheral_->readValueForCharacteristic(battery);
    peripheral_->readValueForCharacteristic(battery);
    peripheral_->writeValueForCharacteristic({0}, characteristic(band::kAlertLevel),
                                             WriteType::withoutResponse);
    peripheral_->setNotifyValue(true, battery);
    loop_.runFor(30ms);
    EXPECT_EQ(host_->events.size(), 1U);
    EXPECT_EQ(band_->drop(code), std::nullopt);
    band::BandRecorder recorder(*band_);
    // Asked for before the end is delivered: answered before it as well.
    host_->onEvent = [&](const std::string& event) {
      if (event.starts_with("notifying")) {
        host_->onEvent = nullptr;
        peripheral_->readValueForCharacteristic(battery);
      }
    };
    host_->events.clear();
    loop_.runFor(1min);
    const std::string error = fmt::format("error {}", code);
    EXPECT_EQ(host_->events, (Events{"value " + error, "notifying false " + error, "value error 3",
                                     "disconnected " + error}));
    EXPECT_TRUE(recorder.writes().empty());
    EXPECT_TRUE(peripheral_->services().empty());
    EXPECT_TRUE(band_->isAdvertising());
    EXPECT_TRUE(band_->drop(code).has_value());
    manager_.reset();
  }
}

TEST_F(VirtualRadioTest, ALinkOutOfRangeTimesOutUnlessTheBandComesBack) {
  startInUse();
  const auto battery = characteristic(band::kBatteryInfo);
  band_->setIsInRange(false);
  peripheral_->readValueForCharacteristic(battery);
  loop_.runFor(5s - 1us);
  EXPECT_TRUE(host_->events.empty());
  band_->setIsInRange(true);
  loop_.runFor(1min);
  ASSERT_EQ(host_->events.size(), 1U);  // the read goes on
  EXPECT_TRUE(host_->events[0].starts_with("value 0f50"));

  host_->events.clear();
  peripheral_->readValueForCharacteristic(battery);
  loop_.runFor(10ms);
  band_->setIsInRange(false);
  loop_.runFor(5s - 1us);
  EXPECT_TRUE(host_->events.empty());
  loop_.runFor(1us);
  EXPECT_EQ(host_->events, (Events{"value error 6", "disconnected error 6"}));
  EXPECT_FALSE(band_->isAdvertising());
}

TEST_F(VirtualRadioTest, FaultsComeWhereTheyWerePlanned) {
  startInUse();
  const auto battery = characteristic(band::kBatteryInfo);
  const auto steps = characteristic(band::kRealtimeSteps);
  platform_.radio.failNext(RadioOperation::read, {14, "No"}, band::kRealtimeSteps);
  platform_.radio.failNext(RadioOperation::setNotify, {6, "No"});
  peripheral_->readValueForCharacteristic(battery);
  peripheral_->readValueForCharacteristic(steps);
  peripheral_->setNotifyValue(true, steps);
  peripheral_->setNotifyValue(true, steps);
  loop_.runFor(1s);
  ASSERT_EQ(host_->events.size(), 4U);
  EXPECT_TRUE(host_->events[0].starts_with("value 0f"));
  EXPECT_EQ(Events(host_->events.begin() + 1, host_->events.end()),
            (Events{"value error 14", "notifying false error 6", "notifying true ok"}));

  host_->events.clear();
  platform_.radio.injectNotification(*band_, band::kHeartRateMeasurement, {0, 70, 1});
  platform_.radio.injectNotification(*band_, band::kAlertLevel, {});
  loop_.runUntilIdle();
  EXPECT_EQ(host_->events, (Events{"value 004601", "value "}));

  host_->events.clear();
  platform_.radio.dropAtOperation(*band_, 2, 7);
  peripheral_->readRSSI();
  peripheral_->readRSSI();
  peripheral_->readRSSI();
  loop_.runFor(1s);
  EXPECT_EQ(host_->events,
            (Events{"rssi ok", "rssi error 7", "rssi error 7", "disconnected error 7"}));
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
  loop_.runFor(1h);
  EXPECT_TRUE(host_->events.empty());
}

TEST_F(VirtualRadioTest, TheManagerMayBeDestroyedInsideAnyOfItsCallbacks) {
  for (const char* const moment : {"state", "discovered", "connected", "services", "value"}) {
    SCOPED_TRACE(moment);
    host_->events.clear();
    host_->onEvent = nullptr;
    makeManager();
    const auto destroy = [&](const std::string& event) {
      if (event.starts_with(moment)) {
        manager_.reset();
      }
    };
    host_->onEvent = destroy;
    loop_.runUntilIdle();
    if (manager_ != nullptr) {
      manager_->scanForPeripheralsWithServices(std::nullopt, duplicates());
      loop_.runFor(150ms);
    }
    if (manager_ != nullptr) {
      peripheral_ = host_->peripheral;
      peripheral_->setDelegate(host_);
      manager_->connectPeripheral(peripheral_, {});
      loop_.runFor(1s);
    }
    if (manager_ != nullptr) {
      peripheral_->discoverServices(std::nullopt);
      peripheral_->readRSSI();
      loop_.runFor(1s);
    }
    if (manager_ != nullptr) {
      host_->onEvent = nullptr;
      discoverAll();
      host_->onEvent = destroy;
      peripheral_->readValueForCharacteristic(characteristic(band::kBatteryInfo));
      peripheral_->readRSSI();
      loop_.runFor(1s);
    }
    EXPECT_EQ(manager_, nullptr);
    EXPECT_TRUE(host_->events.back().starts_with(moment));
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

TEST_F(VirtualRadioTest, IdentifiersTellBandsApartAndAreTheSameInEveryRun) {
  EXPECT_EQ(VirtualRadio::identifierOf(*band_),
            VirtualRadio::identifierOf(
                band::VirtualBand(platform_.handle(), "C8:0F:10:AA:BB:0C", "another")));
  EXPECT_NE(VirtualRadio::identifierOf(*band_),
            VirtualRadio::identifierOf(band::VirtualBand(platform_.handle(), "c8:0f:10:aa:bb:0d")));
  start();
  EXPECT_EQ(peripheral_->identifier(), VirtualRadio::identifierOf(*band_));
  EXPECT_TRUE(manager_->retrievePeripheralsWithIdentifiers({UUID()}).empty());
}

}  // namespace
}  // namespace wrixel2::platform::simulated
