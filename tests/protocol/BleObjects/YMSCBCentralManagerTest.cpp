#include <utility>

#include "FakeBluetooth.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"

namespace wrixel2::bleobjects {
namespace {

using platform::Array;
using platform::CentralState;
using platform::LogLevel;
using platform::UUID;
using platform::Value;

const std::string kKey = "storedPeripherals";
const std::string kFirst = "aaaaaaaa-0000-4000-8000-000000000001";
const std::string kSecond = "bbbbbbbb-0000-4000-8000-000000000002";
const std::string kThird = "cccccccc-0000-4000-8000-000000000003";

/// Writes down what it is told, and how many lines the log had by then.
class RecordingDelegate final : public platform::CentralManagerDelegate {
 public:
  RecordingDelegate(Journal& journal, const platform::simulated::RecordingLog& log)
      : journal_(journal), log_(log) {}

  void centralManagerDidUpdateState(platform::CentralManager& central) override {
    journal_.push_back("delegate state " + std::to_string(static_cast<int>(central.state())));
  }
  void centralManagerDidDiscoverPeripheral(platform::CentralManager&,
                                           const std::shared_ptr<platform::Peripheral>&,
                                           const platform::Dictionary& advertisementData,
                                           int rssi) override {
    journal_.push_back("delegate discover " + std::to_string(advertisementData.size()) + " " +
                       std::to_string(rssi));
  }
  void centralManagerDidConnectPeripheral(platform::CentralManager&,
                                          const std::shared_ptr<platform::Peripheral>&) override {
    journal_.emplace_back("delegate connect");
  }
  void centralManagerDidDisconnectPeripheral(platform::CentralManager&,
                                             const std::shared_ptr<platform::Peripheral>&,
                                             const platform::ErrorOrNone& error) override {
    journal_.push_back("delegate disconnect " + outcome(error));
  }
  void centralManagerDidFailToConnectPeripheral(platform::CentralManager&,
                                                const std::shared_ptr<platform::Peripheral>&,
                                                const platform::ErrorOrNone& error) override {
    journal_.push_back("delegate fail " + outcome(error) + " after " +
                       std::to_string(log_.lines().size()) + " lines");
  }

 private:
  Journal& journal_;
  const platform::simulated::RecordingLog& log_;
};

/// A session manager as it is without any overriding.
class BareCentralManager final : public YMSCBCentralManager {
 public:
  static std::shared_ptr<BareCentralManager> create(const platform::Platform& platform) {
    const std::shared_ptr<BareCentralManager> central(new BareCentralManager(platform));
    central->init();
    return central;
  }

 private:
  explicit BareCentralManager(const platform::Platform& platform)
      : YMSCBCentralManager(platform, {}, platform.runLoop.makeSerialQueue("bare"),
                            std::weak_ptr<platform::CentralManagerDelegate>()) {}
};

class YMSCBCentralManagerTest : public testing::Test {
 protected:
  void SetUp() override { make(true); }

  void make(bool useStoredPeripherals) {
    central = FakeSessionManager::create(phone.handle(), useStoredPeripherals, delegate);
  }

  platform::CentralManagerDelegate& events() { return *radio.delegate.lock(); }

  std::shared_ptr<YMSCBPeripheral> add(const std::shared_ptr<FakePeripheral>& device) {
    auto peripheral = YMSCBPeripheral::create(phone.handle(), device, central, 0, 0);
    central->addPeripheral(peripheral);
    return peripheral;
  }

  void discover(const std::shared_ptr<FakePeripheral>& device) {
    events().centralManagerDidDiscoverPeripheral(*radio.manager, device, {{"key", 1}}, -60);
  }

  Value stored() const { return phone.userDefaults.synchronizedValues().at(kKey); }

  /// What the delegate and the callbacks saw in the turns up to now.
  Journal happened() {
    phone.runLoop.runUntilIdle();
    return std::exchange(journal, {});
  }

  FakeRadio radio;
  platform::simulated::SimulatedPlatform phone{&radio};
  Journal journal;
  std::shared_ptr<RecordingDelegate> delegate =
      std::make_shared<RecordingDelegate>(journal, phone.log);
  std::shared_ptr<FakeSessionManager> central;
  std::shared_ptr<FakePeripheral> first = std::make_shared<FakePeripheral>(kFirst.c_str());
  std::shared_ptr<FakePeripheral> second = std::make_shared<FakePeripheral>(kSecond.c_str());
  std::shared_ptr<FakePeripheral> third = std::make_shared<FakePeripheral>(kThird.c_str());
};

TEST_F(YMSCBCentralManagerTest, MakesThePlatformsCentralForItself) {
  EXPECT_EQ(radio.delegate.lock(), central);
  EXPECT_EQ(radio.queueLabel, "radio");
  EXPECT_TRUE(radio.storedIdentifiers.empty());
  EXPECT_EQ(stored(), Value(Array{}));
  EXPECT_EQ(central->version(), "1.090");
  EXPECT_EQ(central->count(), 0U);
  EXPECT_EQ(central->watchdogTimerInterval(), std::chrono::seconds(60));

  phone.userDefaults.setObjectForKey(kKey, Array{kFirst});
  make(true);
  EXPECT_EQ(radio.storedIdentifiers, std::vector<UUID>{first->identifier()})
      << "links left over from earlier runs can be told";

  phone.userDefaults.setObjectForKey(kKey, "no list");
  make(false);
  EXPECT_EQ(phone.userDefaults.objectForKey(kKey), Value("no list"));
}

TEST_F(YMSCBCentralManagerTest, EachStateHasItsHandler) {
  const struct {
    CentralState state;
    const char* handler;
  } kCases[] = {
      {CentralState::unknown, "unknown"},         {CentralState::resetting, "resetting"},
      {CentralState::unsupported, "unsupported"}, {CentralState::unauthorized, "unauthorized"},
      {CentralState::poweredOff, "off"},          {CentralState::poweredOn, "on"},
      {static_cast<CentralState>(6), nullptr}};
  for (const auto& test : kCases) {
    central->journal.clear();
    radio.manager->radioState = test.state;
    events().centralManagerDidUpdateState(*radio.manager);
    EXPECT_TRUE(central->journal.empty()) << "not before the main queue's turn";
    EXPECT_EQ(happened(),
              Journal{"delegate state " + std::to_string(static_cast<int>(test.state))});
    EXPECT_EQ(central->journal, test.handler == nullptr ? Journal{} : Journal{test.handler});
  }
}

TEST_F(YMSCBCentralManagerTest, ARadioThatGoesOffAndOnInOneTurnIsHandledAsBoth) {
  for (const auto state : {CentralState::poweredOff, CentralState::poweredOn}) {
    radio.manager->radioState = state;
    events().centralManagerDidUpdateState(*radio.manager);
  }
  phone.runLoop.runUntilIdle();
  EXPECT_EQ(central->journal, (Journal{"off", "on"}));
}

TEST_F(YMSCBCentralManagerTest, DiscoveredDevicesAreStoredOnceAndHandedOn) {
  discover(first);
  discover(second);
  discover(first);
  discover(std::make_shared<FakePeripheral>("00000000-0000-0000-0000-000000000000"));
  EXPECT_EQ(happened(), Journal(4, "delegate discover 1 -60"));
  EXPECT_EQ(central->journal,
            (Journal{"found aaaaaaaa", "found bbbbbbbb", "found aaaaaaaa", "found 00000000"}));
  EXPECT_EQ(stored(), Value(Array{kFirst, kSecond}));

  central->setUseStoredPeripherals(false);
  discover(third);
  happened();
  EXPECT_EQ(stored(), Value(Array{kFirst, kSecond}));
}

TEST_F(YMSCBCentralManagerTest, AScansCallbackOutlivesTheScan) {
  const auto note = [this](const std::shared_ptr<platform::Peripheral>& device,
                           const platform::Dictionary& advertisementData, int rssi,
                           const platform::ErrorOrNone& error) {
    journal.push_back("callback " + device->identifier().longText().substr(0, 8) + " " +
                      std::to_string(advertisementData.size()) + " " + std::to_string(rssi) + " " +
                      outcome(error));
  };
  central->scanForPeripheralsWithServicesWithBlock(std::vector<UUID>{uuid("fee0")},
                                                   {{"option", true}}, note);
  EXPECT_TRUE(central->isScanning());
  discover(first);
  EXPECT_EQ(happened(), (Journal{"callback aaaaaaaa 1 -60 ok", "delegate discover 1 -60"}));
  central->stopScan();
  EXPECT_FALSE(central->isScanning());
  central->scanForPeripheralsWithServices(std::nullopt, {});
  discover(second);
  EXPECT_EQ(happened(), (Journal{"callback bbbbbbbb 1 -60 ok", "delegate discover 1 -60"}));
  EXPECT_TRUE(central->journal.empty()) << "handleFoundPeripheral is not called";
  EXPECT_EQ(radio.manager->journal, (Journal{"scan 1 1", "stopScan", "scan 0 0"}));

  // One that replaces itself while it is called.
  central->setDiscoveredCallback([&](const auto&, const auto&, int, const auto&) {
    journal.emplace_back("last call");
    central->setDiscoveredCallback(nullptr);
    journal.emplace_back("and after it");
  });
  discover(third);
  discover(third);
  EXPECT_EQ(happened(), (Journal{"last call", "and after it", "delegate discover 1 -60",
                                 "delegate discover 1 -60"}));
  EXPECT_EQ(central->journal, Journal{"found cccccccc"});
}

TEST_F(YMSCBCentralManagerTest, AScanEndsAfterAMinute) {
  central->scanForPeripheralsWithServices(std::nullopt, {});
  phone.runLoop.runFor(std::chrono::milliseconds(59999));
  EXPECT_TRUE(central->isScanning());
  phone.runLoop.runFor(std::chrono::milliseconds(1));
  EXPECT_FALSE(central->isScanning());
  EXPECT_EQ(radio.manager->journal, (Journal{"scan 0 0", "stopScan"}));
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
  EXPECT_TRUE(central->journal.empty()) << "a subclass's operation of that name is another matter";
}

TEST_F(YMSCBCentralManagerTest, StoppingOrScanningAgainEndsTheScansTimer) {
  central->scanForPeripheralsWithServices(std::nullopt, {});
  phone.runLoop.runFor(std::chrono::seconds(59));
  central->scanForPeripheralsWithServices(std::nullopt, {});
  phone.runLoop.runFor(std::chrono::seconds(59));
  EXPECT_TRUE(central->isScanning());
  central->stopScan();
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);

  // Without a scan the time-out does nothing to the radio.
  radio.manager->journal.clear();
  central->resetWatchdog();
  phone.runLoop.runFor(std::chrono::minutes(2));
  EXPECT_TRUE(radio.manager->journal.empty());
}

TEST_F(YMSCBCentralManagerTest, ConnectionsAreAnsweredToTheirDevice) {
  const auto peripheral = add(first);
  const auto connect = [&] {
    peripheral->connectWithOptions({}, [this](const auto&, const platform::ErrorOrNone& error) {
      journal.push_back("connected " + outcome(error));
    });
  };
  connect();
  events().centralManagerDidConnectPeripheral(*radio.manager, first);
  EXPECT_EQ(happened(), (Journal{"connected ok", "delegate connect"}));

  connect();
  events().centralManagerDidFailToConnectPeripheral(*radio.manager, first, kFailure);
  EXPECT_EQ(happened(), (Journal{"connected error 6", "delegate fail error 6 after 0 lines"}));
  EXPECT_EQ(phone.log.messages(LogLevel::error),
            Journal{"Failed to connect :( " + platform::description(kFailure)});
  EXPECT_EQ(phone.log.messages("YMSCBCentralManager").size(), 1U);
}

TEST_F(YMSCBCentralManagerTest, ADisconnectionClearsWhatDiscoveryFound) {
  const auto peripheral = add(first);
  const auto service = std::make_shared<FakeBandService>(phone.handle(), peripheral, journal);
  peripheral->setServiceDict({{"heart", service}});
  peripheral->setIsInitialized(true);
  service->setCbService(std::make_shared<FakeService>("180d"));
  service->setIsOn(true);
  service->setIsEnabled(true);
  service->setIsSupported(true);
  events().centralManagerDidDisconnectPeripheral(*radio.manager, first, kFailure);
  EXPECT_TRUE(peripheral->isInitialized()) << "not before the main queue's turn";
  EXPECT_EQ(happened(), Journal{"delegate disconnect error 6"});
  EXPECT_FALSE(peripheral->isInitialized());
  EXPECT_EQ(service->cbService(), nullptr);
  EXPECT_FALSE(service->isOn());
  EXPECT_FALSE(service->isEnabled());
  EXPECT_TRUE(service->isSupported()) << "what the peer offers does not end with the link";
}

TEST_F(YMSCBCentralManagerTest, UnknownDevicesAreOnlyForwarded) {
  add(first);
  // The same device, but another object of the platform.
  const auto other = std::make_shared<FakePeripheral>(kFirst.c_str());
  EXPECT_EQ(central->findPeripheral(other), nullptr);
  events().centralManagerDidConnectPeripheral(*radio.manager, other);
  events().centralManagerDidDisconnectPeripheral(*radio.manager, other, kNoError);
  events().centralManagerDidFailToConnectPeripheral(*radio.manager, other, kNoError);
  EXPECT_EQ(happened(), (Journal{"delegate connect", "delegate disconnect ok",
                                 "delegate fail ok after 0 lines"}));
  EXPECT_EQ(phone.log.messages(LogLevel::error), Journal{"Failed to connect :( (null)"});
}

TEST_F(YMSCBCentralManagerTest, TheListKeepsItsOrder) {
  const auto a = add(first);
  const auto b = add(second);
  const auto c = YMSCBPeripheral::create(phone.handle(), third, central, 0, 0);
  central->insertObjectInYmsPeripheralsAtIndex(c, 1);
  EXPECT_EQ(central->ymsPeripherals(), (std::vector{a, c, b}));
  EXPECT_EQ(central->peripheralAtIndex(2), b);
  EXPECT_EQ(central->objectInYmsPeripheralsAtIndex(1), c);
  EXPECT_EQ(central->findPeripheral(second), b);

  central->removePeripheral(c);
  central->removePeripheral(c);  // not in the list any more
  central->removePeripheralAtIndex(7);
  EXPECT_EQ(central->ymsPeripherals(), (std::vector{a, b}));
  EXPECT_EQ(central->countOfYmsPeripherals(), 2U);
  EXPECT_EQ(central->peripheralAtIndex(2), nullptr);
  central->insertObjectInYmsPeripheralsAtIndex(c, 99);
  EXPECT_EQ(central->peripheralAtIndex(2), c);
}

TEST_F(YMSCBCentralManagerTest, RemovingForgetsStoredIdentifiersAndAResetDoesNot) {
  const Array kAll = {kFirst, kSecond, kThird};
  const auto addAll = [&] {
    phone.userDefaults.setObjectForKey(kKey, kAll);
    phone.userDefaults.synchronize();
    for (const auto& device : {first, second, third}) {
      add(device);
    }
  };
  addAll();
  central->removePeripheralAtIndex(1);
  EXPECT_EQ(stored(), Value(Array{kFirst, kThird}));
  central->removeAllPeripherals();
  EXPECT_EQ(stored(), Value(Array{}));

  addAll();
  radio.manager->radioState = CentralState::resetting;
  events().centralManagerDidUpdateState(*radio.manager);
  happened();
  EXPECT_EQ(central->count(), 0U);
  EXPECT_EQ(stored(), Value(kAll));

  addAll();
  central->setUseStoredPeripherals(false);
  central->removeAllPeripherals();
  EXPECT_EQ(stored(), Value(kAll));
}

TEST_F(YMSCBCentralManagerTest, DevicesAreKnownByTheirExactName) {
  const struct {
    std::optional<std::string> name;
    bool isKnown;
  } kCases[] = {{"MI Band 2", true},   {"Other", true}, {"MI band 2", false},
                {"MI Band 2 ", false}, {"", false},     {std::nullopt, false}};
  for (const auto& test : kCases) {
    first->deviceName = test.name;
    EXPECT_EQ(central->isKnownPeripheral(*first), test.isKnown) << test.name.value_or("none");
  }
}

TEST_F(YMSCBCentralManagerTest, RetrievingMakesNoDeviceObjects) {
  radio.manager->retrieved = {first, second};
  EXPECT_EQ(central->retrieveConnectedPeripheralsWithServices({uuid("fee0")}),
            radio.manager->retrieved);
  EXPECT_EQ(central->retrievePeripheralsWithIdentifiers({first->identifier()}),
            radio.manager->retrieved);
  EXPECT_EQ(radio.manager->journal, (Journal{"retrieveConnected 1", "retrieve 1"}));
  EXPECT_EQ(central->count(), 0U);
}

TEST_F(YMSCBCentralManagerTest, WhatMustBeOverriddenIsAFatalMistake) {
  const auto bare = BareCentralManager::create(phone.handle());
  EXPECT_FALSE(bare->useStoredPeripherals());
  EXPECT_DEATH(bare->startScan(),
               "\\[YMSCBCentralManager startScan\\] must be be overridden and include call to "
               "\\[self scanForPeripherals:options:\\]");
  EXPECT_DEATH(bare->handleFoundPeripheral(first),
               "\\[YMSCBCentralManager handleFoundPeripheral:\\] must be be overridden\\.");
}

TEST_F(YMSCBCentralManagerTest, NothingReachesACentralThatIsGone) {
  const auto peripheral = add(first);
  central->scanForPeripheralsWithServices(std::nullopt, {});
  phone.runLoop.runUntilIdle();
  radio.manager->radioState = CentralState::poweredOn;
  events().centralManagerDidUpdateState(*radio.manager);
  discover(first);
  events().centralManagerDidConnectPeripheral(*radio.manager, first);
  events().centralManagerDidDisconnectPeripheral(*radio.manager, first, kFailure);
  events().centralManagerDidFailToConnectPeripheral(*radio.manager, first, kFailure);
  central->resetWatchdog();
  central = nullptr;
  EXPECT_TRUE(radio.delegate.expired()) << "what is queued holds it weakly";
  phone.runLoop.runFor(std::chrono::minutes(2));
  EXPECT_TRUE(happened().empty());
  EXPECT_TRUE(phone.log.lines().empty());

  // Its device objects may stay for a while; there is nobody to connect them.
  EXPECT_EQ(peripheral->central(), nullptr);
  peripheral->connect();
  peripheral->disconnect();
}

}  // namespace
}  // namespace wrixel2::bleobjects
