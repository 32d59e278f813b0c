#include <utility>

#include "FakeBluetooth.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"

namespace wrixel2::bleobjects {
namespace {

using platform::Array;
using platform::CentralState;
using platform::LogLevel;
using platform::Value;

const std::string kKey = "storedPeripherals";
const std::string kFirst = "aaaaaaaa-0000-4000-8000-000000000001";
const std::string kSecond = "bbbbbbbb-0000-4000-8000-000000000002";
const std::string kFound = "delegate found MI Band 2 -60 - -";
const std::string kThird = "cccccccc-0000-4000-8000-000000000003";

class YMSCBCentralManagerTest : public testing::Test {
 protected:
  void SetUp() override { make(true); }

  void make(bool useStoredPeripherals) {
    central = FakeSessionManager::create(phone.handle(), useStoredPeripherals, delegate);
  }

  std::shared_ptr<YMSCBPeripheral> add(const std::shared_ptr<FakePeripheral>& device) {
    auto peripheral = YMSCBPeripheral::create(phone.handle(), device, central, 0, 0);
    central->addPeripheral(peripheral);
    return peripheral;
  }

  // What the radio reports.
  platform::CentralManagerDelegate& events() { return *radio.delegate.lock(); }
  void state(CentralState state) {
    radio.manager->radioState = state;
    events().centralManagerDidUpdateState(*radio.manager);
  }
  void discover(const DevicePtr& device) {
    events().centralManagerDidDiscoverPeripheral(*radio.manager, device, {{"key", 1}}, -60);
  }
  void connected(const std::shared_ptr<FakePeripheral>& device) {
    device->linkState = platform::PeripheralState::connected;
    events().centralManagerDidConnectPeripheral(*radio.manager, device);
  }
  void disconnected(const DevicePtr& device, const ErrorOrNone& error = kFailure) {
    events().centralManagerDidDisconnectPeripheral(*radio.manager, device, error);
  }
  void failed(const DevicePtr& device, const ErrorOrNone& error = kFailure) {
    events().centralManagerDidFailToConnectPeripheral(*radio.manager, device, error);
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
  std::shared_ptr<platform::bluez::EventRecorder> delegate = notingDelegate(journal);
  std::shared_ptr<FakeSessionManager> central;
  std::shared_ptr<FakePeripheral> first = std::make_shared<FakePeripheral>(kFirst.c_str());
  std::shared_ptr<FakePeripheral> second = std::make_shared<FakePeripheral>(kSecond.c_str());
  std::shared_ptr<FakePeripheral> third = std::make_shared<FakePeripheral>(kThird.c_str());
};

TEST_F(YMSCBCentralManagerTest, MakesThePlatformsCentralForItself) {
  EXPECT_EQ(radio.delegate.lock(), central);
  EXPECT_TRUE(radio.storedIdentifiers.empty());
  EXPECT_EQ(stored(), Value(Array{}));

  phone.userDefaults.setObjectForKey(kKey, Array{kFirst});
  make(true);
  EXPECT_EQ(radio.storedIdentifiers, std::vector<UUID>{first->identifier()})
      << "devices of earlier runs are known to it";

  phone.userDefaults.setObjectForKey(kKey, "no list");
  make(false);
  EXPECT_FALSE(FakeSessionManager::create(phone.handle())->useStoredPeripherals());
  EXPECT_EQ(phone.userDefaults.objectForKey(kKey), Value("no list"));
}

TEST_F(YMSCBCentralManagerTest, EachStateHasItsHandlerAlsoWhereSeveralComeInOneTurn) {
  for (int each = 0; each <= 6; ++each) {
    state(static_cast<CentralState>(each));
  }
  EXPECT_TRUE(central->journal.empty()) << "not before the main queue's turn";
  EXPECT_EQ(happened(), Journal(7, "delegate state 6"));
  EXPECT_EQ(central->journal,
            (Journal{"unknown", "resetting", "unsupported", "unauthorized", "off", "on"}));
}

TEST_F(YMSCBCentralManagerTest, DiscoveredDevicesAreStoredOnceAndHandedOn) {
  for (const auto& device : {first, second, first}) {
    discover(device);
  }
  discover(std::make_shared<FakePeripheral>("00000000-0000-0000-0000-000000000000"));
  EXPECT_EQ(happened(), Journal(4, kFound));
  EXPECT_EQ(central->journal,
            (Journal{"found aaaaaaaa", "found bbbbbbbb", "found aaaaaaaa", "found 00000000"}));
  EXPECT_EQ(stored(), Value(Array{kFirst, kSecond}));

  central->setUseStoredPeripherals(false);
  discover(third);
  happened();
  EXPECT_EQ(stored(), Value(Array{kFirst, kSecond}));
}

TEST_F(YMSCBCentralManagerTest, AScansCallbackOutlivesTheScan) {
  const auto note = [this](const DevicePtr& device, const platform::Dictionary& data, int rssi,
                           const ErrorOrNone& error) {
    journal.push_back("callback " + shortName(*device) + " " + std::to_string(data.size()) + " " +
                      std::to_string(rssi) + " " + outcome(error));
  };
  central->scanForPeripheralsWithServicesWithBlock(std::vector<UUID>{uuid("fee0")},
                                                   {{"option", true}}, note);
  discover(first);
  EXPECT_EQ(happened(), (Journal{"callback aaaaaaaa 1 -60 ok", kFound}));
  central->stopScan();
  central->scanForPeripheralsWithServices(std::nullopt, {});
  discover(second);
  EXPECT_EQ(happened(), (Journal{"callback bbbbbbbb 1 -60 ok", kFound}));
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
  EXPECT_EQ(happened(), (Journal{"last call", "and after it", kFound, kFound}));
  EXPECT_EQ(central->journal, Journal{"found cccccccc"});
}

TEST_F(YMSCBCentralManagerTest, AScanEndsAfterAMinuteUnlessItIsEndedOrBegunAgain) {
  const auto scan = [this] { central->scanForPeripheralsWithServices(std::nullopt, {}); };
  scan();
  phone.runLoop.runFor(std::chrono::seconds(59));
  scan();
  phone.runLoop.runFor(std::chrono::milliseconds(59999));
  EXPECT_TRUE(central->isScanning());
  phone.runLoop.runFor(std::chrono::milliseconds(1));
  EXPECT_FALSE(central->isScanning());
  EXPECT_EQ(radio.manager->journal, (Journal{"scan 0 0", "scan 0 0", "stopScan"}));
  EXPECT_TRUE(central->journal.empty()) << "a subclass's operation of that name is another matter";

  scan();
  phone.runLoop.runUntilIdle();
  central->stopScan();
  EXPECT_FALSE(central->isScanning());
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
    peripheral->connectWithOptions({}, [this](const auto&, const ErrorOrNone& error) {
      journal.push_back("connected " + outcome(error));
    });
  };
  connect();
  connected(first);
  EXPECT_EQ(happened(), (Journal{"connected ok", "delegate connected"}));

  connect();
  delegate->react = [this](const std::string& event) {
    journal.push_back(event);
    EXPECT_TRUE(phone.log.lines().empty()) << "the summary comes last";
  };
  failed(first);
  EXPECT_EQ(happened(), (Journal{"connected error 6", "failed 6"}));
  EXPECT_EQ(phone.log.messages("YMSCBCentralManager"),
            Journal{"Failed to connect :( " + platform::description(kFailure)});
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
  disconnected(first);
  EXPECT_TRUE(peripheral->isInitialized()) << "not before the main queue's turn";
  EXPECT_EQ(happened(), Journal{"delegate disconnected 6"});
  EXPECT_FALSE(peripheral->isInitialized());
  EXPECT_EQ(service->cbService(), nullptr);
  EXPECT_FALSE(service->isOn() || service->isEnabled());
  EXPECT_TRUE(service->isSupported()) << "what the peer offers does not end with the link";
}

TEST_F(YMSCBCentralManagerTest, UnknownDevicesAreOnlyForwarded) {
  add(first);
  // The same device, but another object of the platform.
  const auto other = std::make_shared<FakePeripheral>(kFirst.c_str());
  connected(other);
  EXPECT_EQ(happened(), Journal{"delegate connected"});
  other->linkState = platform::PeripheralState::disconnected;
  disconnected(other, kNoError);
  failed(other, kNoError);
  EXPECT_EQ(happened(), (Journal{"delegate disconnected -", "delegate failed -"}));
  EXPECT_EQ(phone.log.messages(LogLevel::error), Journal{"Failed to connect :( (null)"});
}

TEST_F(YMSCBCentralManagerTest, TheListKeepsItsOrder) {
  const auto a = add(first);
  const auto b = add(second);
  const auto c = YMSCBPeripheral::create(phone.handle(), third, central, 0, 0);
  central->insertObjectInYmsPeripheralsAtIndex(c, 1);
  EXPECT_EQ(central->ymsPeripherals(), (std::vector{a, c, b}));
  EXPECT_EQ(central->findPeripheral(second), b);

  central->removePeripheral(c);
  central->removePeripheral(c);  // not in the list any more
  central->removePeripheralAtIndex(7);
  EXPECT_EQ(central->ymsPeripherals(), (std::vector{a, b}));
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
  state(CentralState::resetting);
  happened();
  EXPECT_EQ(central->count(), 0U);
  EXPECT_EQ(stored(), Value(kAll));

  addAll();
  central->setUseStoredPeripherals(false);
  central->removeAllPeripherals();
  EXPECT_EQ(stored(), Value(kAll));
}

TEST_F(YMSCBCentralManagerTest, DevicesAreKnownByTheirExactName) {
  const std::pair<std::optional<std::string>, bool> kCases[] = {
      {"MI Band 2", true},   {"Other", true}, {"MI band 2", false},
      {"MI Band 2 ", false}, {"", false},     {std::nullopt, false}};
  for (const auto& [name, isKnown] : kCases) {
    first->deviceName = name;
    EXPECT_EQ(central->isKnownPeripheral(*first), isKnown) << name.value_or("none");
  }
}

TEST_F(YMSCBCentralManagerTest, RetrievingMakesNoDeviceObjects) {
  auto& all = radio.manager->retrieved = {first, second};
  EXPECT_EQ(central->retrieveConnectedPeripheralsWithServices({uuid("fee0")}), all);
  EXPECT_EQ(central->retrievePeripheralsWithIdentifiers({first->identifier()}), all);
  EXPECT_EQ(radio.manager->journal, (Journal{"retrieveConnected 1", "retrieve 1"}));
  EXPECT_EQ(central->count(), 0U);
}

TEST_F(YMSCBCentralManagerTest, WhatMustBeOverriddenIsAFatalMistake) {
  EXPECT_DEATH(central->startScan(),
               "\\[YMSCBCentralManager startScan\\] must be be overridden and include call to "
               "\\[self scanForPeripherals:options:\\]");
  EXPECT_DEATH(central->YMSCBCentralManager::handleFoundPeripheral(first),
               "\\[YMSCBCentralManager handleFoundPeripheral:\\] must be be overridden\\.");
}

TEST_F(YMSCBCentralManagerTest, NothingReachesACentralThatIsGone) {
  const auto peripheral = add(first);
  central->scanForPeripheralsWithServices(std::nullopt, {});
  phone.runLoop.runUntilIdle();
  state(CentralState::poweredOn);
  discover(first);
  connected(first);
  disconnected(first);
  failed(first);
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
