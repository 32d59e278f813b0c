#include <utility>

#include "FakeBluetooth.h"
#include "protocol/BleObjects/YMSCBDescriptor.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"

namespace wrixel2::bleobjects {
namespace {

using platform::PeripheralState;

class YMSCBPeripheralTest : public BleObjectsTest {
 protected:
  YMSCBPeripheralTest() {
    peripheral->setDelegate(delegate);
    radio.manager->journal.clear();
  }

  platform::PeripheralDelegate& events() { return *device->delegate.lock(); }

  ConnectCallback notingConnect(std::string name) {
    return [this, name = std::move(name)](const std::shared_ptr<YMSCBPeripheral>& connected,
                                          const ErrorOrNone& error) {
      EXPECT_EQ(connected, peripheral);
      journal.push_back(name + " " + outcome(error));
    };
  }

  void updateValue(const std::shared_ptr<FakeCharacteristic>& characteristic, Bytes value,
                   const ErrorOrNone& error = kNoError) {
    characteristic->currentValue = std::move(value);
    events().peripheralDidUpdateValueForCharacteristic(device, characteristic, error);
  }

  /// What happened in the turns up to now.
  Journal happened() {
    phone.runLoop.runUntilIdle();
    return std::exchange(journal, {});
  }

  Journal& requested() { return radio.manager->journal; }

  std::shared_ptr<platform::bluez::EventRecorder> delegate = notingDelegate(journal);
};

TEST_F(YMSCBPeripheralTest, IsConnectedWhenItsDeviceIsAndWithoutOneNever) {
  for (const auto state : {PeripheralState::disconnected, PeripheralState::connecting,
                           PeripheralState::disconnecting, PeripheralState::connected}) {
    device->linkState = state;
    EXPECT_EQ(peripheral->isConnected(), state == PeripheralState::connected);
  }
  EXPECT_EQ(peripheral->name(), "MI Band 2");
  EXPECT_EQ((*peripheral)["nothing"], nullptr);

  const auto bare = YMSCBPeripheral::create(phone.handle(), nullptr, central, 1, 2);
  EXPECT_EQ(bare->name(), std::nullopt);
  EXPECT_FALSE(bare->isConnected());
  bare->connect();
  bare->disconnect();
  bare->readRSSI();
  EXPECT_TRUE(requested().empty());
}

TEST_F(YMSCBPeripheralTest, ServicesAreListedAndFoundByUUID) {
  auto dict = peripheral->serviceDict();
  dict["alert"] = std::make_shared<YMSCBService>(phone.handle(), "alert", peripheral, 0, 0,
                                                 ServiceOffset{0x1802});
  peripheral->setServiceDict(dict);
  EXPECT_EQ(peripheral->servicesSubset({"heart", "nothing", "alert"}),
            (std::vector<UUID>{uuid("180d"), uuid("1802")}));
  EXPECT_TRUE(phone.log.lines().empty());
  EXPECT_EQ(peripheral->findService(std::make_shared<FakeService>("1802")), dict["alert"]);
  EXPECT_EQ(peripheral->findService(std::make_shared<FakeService>("1803")), nullptr);
}

TEST_F(YMSCBPeripheralTest, AConnectionIsAnsweredOnce) {
  peripheral->connectWithOptions({}, notingConnect("replaced"));
  peripheral->connectWithOptions({{"option", true}}, notingConnect("second"));
  EXPECT_EQ(requested(), (Journal{"connect 11111111 0", "connect 11111111 1"}));
  peripheral->handleConnectionResponse(kFailure);
  EXPECT_EQ(journal, Journal{"second error 6"});
  EXPECT_DEATH(peripheral->handleConnectionResponse(kNoError),
               "\\[YMSCBPeripheral defaultConnectionHandler\\] must be overridden if "
               "connectCallback is nil\\.");

  // An attempt from inside the callback is made, and loses its own callback.
  peripheral->connectWithOptions({}, [this](const auto&, const auto&) {
    peripheral->connectWithOptions({}, notingConnect("inner"));
  });
  peripheral->handleConnectionResponse(kFailure);
  EXPECT_EQ(requested().size(), 4U);
  EXPECT_DEATH(peripheral->handleConnectionResponse(kNoError), "must be overridden");

  auto held = std::make_shared<int>();
  peripheral->connectWithOptions({}, [held](const auto&, const auto&) { FAIL(); });
  peripheral->cancelConnection();
  EXPECT_EQ(held.use_count(), 1) << "cancelling drops the callback";
  EXPECT_EQ(requested().back(), "cancel 11111111");
}

TEST_F(YMSCBPeripheralTest, TheWatchdogCancelsAnAttemptThatIsNotAnswered) {
  peripheral->resetWatchdog();
  phone.runLoop.runFor(std::chrono::minutes(5));
  EXPECT_TRUE(requested().empty()) << "a connected device is left alone";

  device->linkState = PeripheralState::connecting;
  for (const auto& error : {kNoError, kFailure}) {
    peripheral->resetWatchdog();
    peripheral->connectWithOptions({}, notingConnect("answered"));
    phone.runLoop.runUntilIdle();
    peripheral->setWatchdogRaised(true);
    peripheral->handleConnectionResponse(error);
    EXPECT_FALSE(peripheral->watchdogRaised());
    EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
  }
  requested().clear();

  peripheral->resetWatchdog();
  peripheral->connectWithOptions({}, notingConnect("never"));
  phone.runLoop.runFor(std::chrono::milliseconds(44999));
  EXPECT_FALSE(peripheral->watchdogRaised());
  EXPECT_EQ(requested(), Journal{"connect 11111111 0"});
  phone.runLoop.runFor(std::chrono::milliseconds(1));
  EXPECT_TRUE(peripheral->watchdogRaised());
  EXPECT_EQ(requested(), (Journal{"connect 11111111 0", "cancel 11111111"}));
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);

  peripheral->invalidateWatchdog();
  EXPECT_TRUE(peripheral->watchdogRaised()) << "there is no timer any more";
}

TEST_F(YMSCBPeripheralTest, OnlyInvalidatingClearsTheRaisedFlag) {
  peripheral->setWatchdogTimerInterval(std::chrono::seconds(1));
  peripheral->resetWatchdog();
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U) << "the timer is made a turn later";
  phone.runLoop.runUntilIdle();
  peripheral->setWatchdogRaised(true);
  peripheral->disconnect();
  EXPECT_TRUE(peripheral->watchdogRaised());
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);

  peripheral->resetWatchdog();
  phone.runLoop.runUntilIdle();
  peripheral->resetWatchdog();
  EXPECT_FALSE(peripheral->watchdogRaised());
}

TEST_F(YMSCBPeripheralTest, TheGenericConnectionDiscoversTheWholeTable) {
  peripheral->connect();
  EXPECT_EQ(requested(), Journal{"connect 11111111 0"});
  peripheral->handleConnectionResponse(kNoError);
  events().peripheralDidDiscoverServices(device, kNoError);
  phone.runLoop.runUntilIdle();
  events().peripheralDidDiscoverCharacteristicsForService(device, deviceService, kNoError);
  phone.runLoop.runUntilIdle();
  EXPECT_EQ(device->journal,
            (Journal{"discoverServices: 180d", "discoverCharacteristics of 180d: 2a39 2a37",
                     "discoverDescriptors of 2a39", "discoverDescriptors of 2a37"}));
  events().peripheralDidDiscoverDescriptorsForCharacteristic(device, deviceControl, kNoError);
  events().peripheralDidDiscoverDescriptorsForCharacteristic(device, deviceMeasurement, kFailure);
  phone.runLoop.runUntilIdle();
  EXPECT_TRUE(service->isEnabled());
}

TEST_F(YMSCBPeripheralTest, WhatIsPendingShowsAndMayBeTakenBack) {
  const auto pending = [this] {
    phone.runLoop.runUntilIdle();
    Journal names;
    const auto note = [&](const char* name, bool isPending) {
      if (isPending) {
        names.emplace_back(name);
      }
    };
    note("scan", central->discoveredCallback() && central->watchdogTimer());
    note("watchdog", peripheral->watchdogTimer() && peripheral->watchdogTimer()->isValid());
    note("connect", bool(peripheral->connectCallback()));
    note("services", bool(peripheral->discoverServicesCallback()));
    note("characteristics", bool(service->discoverCharacteristicsCallback()));
    for (const auto& [name, each] : service->characteristicDict()) {
      note("descriptors", bool(each->discoverDescriptorsCallback()));
      note("notify", each->notificationStateCallback().has_value());
      note("read", !each->readCallbacks().isEmpty());
      note("write", !each->writeCallbacks().isEmpty());
    }
    return names;
  };
  central->scanForPeripheralsWithServicesWithBlock(std::nullopt, {}, [](auto&&...) {});
  EXPECT_EQ(pending(), Journal{"scan"});
  central->stopScan();
  peripheral->connect();
  EXPECT_EQ(pending(), (Journal{"watchdog", "connect"}));
  peripheral->handleConnectionResponse(kNoError);
  EXPECT_EQ(pending(), Journal{"services"});
  events().peripheralDidDiscoverServices(device, kNoError);
  EXPECT_EQ(pending(), Journal{"characteristics"});
  events().peripheralDidDiscoverCharacteristicsForService(device, deviceService, kNoError);
  EXPECT_EQ(pending(), (Journal{"descriptors", "descriptors"}));
  for (const auto& characteristic : {deviceControl, deviceMeasurement}) {
    events().peripheralDidDiscoverDescriptorsForCharacteristic(device, characteristic, kNoError);
  }
  EXPECT_EQ(pending(), Journal{});

  for (const auto& error : {kNoError, kFailure}) {
    measurement->setNotifyValue(true, noting(journal, "notify"));
    measurement->readValueWithBlock(notingRead(journal, "read"));
    measurement->writeByte(1, noting(journal, "write"));
    EXPECT_EQ(pending(), (Journal{"notify", "read", "write"}));
    if (error) {  // what is taken back is not called
      measurement->setNotificationStateCallback(nullptr);
      measurement->setReadCallbacks({});
      measurement->setWriteCallbacks({});
    }
    measurement->executeNotificationStateCallback(error);
    measurement->executeReadCallback(std::nullopt, error);
    measurement->executeWriteCallback(error);
    EXPECT_EQ(pending(), Journal{});
  }
  EXPECT_EQ(journal,
            (Journal{"delegate services - 180d", "delegate characteristics 180d - 2a37 2a39",
                     "delegate descriptors 2a39 - 0", "delegate descriptors 2a37 - 0", "notify ok",
                     "read none ok", "write ok"}));

  // A timer set from outside takes the place of the one that runs.
  peripheral->resetWatchdog();
  EXPECT_EQ(pending(), Journal{"watchdog"});
  peripheral->setWatchdogTimer(nullptr);
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

TEST_F(YMSCBPeripheralTest, TheGenericConnectionStopsSilentlyAtTheFirstError) {
  for (std::size_t stage = 0; stage < 3; ++stage) {
    SCOPED_TRACE(stage);
    device->journal.clear();
    const auto result = [stage](std::size_t at) { return at == stage ? kFailure : kNoError; };
    peripheral->connect();
    peripheral->handleConnectionResponse(result(0));
    events().peripheralDidDiscoverServices(device, result(1));
    phone.runLoop.runUntilIdle();
    events().peripheralDidDiscoverCharacteristicsForService(device, deviceService, result(2));
    phone.runLoop.runUntilIdle();
    EXPECT_EQ(device->journal.size(), stage);
  }
  EXPECT_TRUE(phone.log.lines().empty());
}

TEST_F(YMSCBPeripheralTest, DiscoveredServicesAreBoundBeforeTheCallback) {
  device->known = {std::make_shared<FakeService>("1800"), deviceService};
  peripheral->discoverServices({uuid("180d")}, [this](const auto& services, const auto& error) {
    ASSERT_EQ(services.size(), 1U) << "an undeclared service is left out";
    EXPECT_EQ(services[0], service);
    EXPECT_EQ(service->cbService(), deviceService);
    journal.push_back("discovered " + outcome(error));
    peripheral->discoverServices({}, [](const auto&, const auto&) { FAIL() << "lost"; });
  });
  events().peripheralDidDiscoverServices(device, kFailure);
  EXPECT_TRUE(journal.empty()) << "nothing happens before the main queue's turn";
  EXPECT_EQ(happened(), (Journal{"discovered error 6", "delegate services 6 1800 180d"}));

  // Without a callback nothing is bound.
  service->setCbService(nullptr);
  events().peripheralDidDiscoverServices(device, kNoError);
  EXPECT_EQ(happened(), Journal{"delegate services - 1800 180d"});
  EXPECT_EQ(service->cbService(), nullptr);
}

TEST_F(YMSCBPeripheralTest, DiscoveredCharacteristicsAreBoundAlsoAfterAnError) {
  for (const auto& error : {kFailure, kNoError}) {
    measurement->setCbCharacteristic(nullptr);
    service->setCbService(deviceService);
    service->discoverCharacteristics(std::nullopt, [this](const auto& dict, const auto& result) {
      EXPECT_EQ(dict.size(), 2U);
      EXPECT_EQ(measurement->cbCharacteristic(), deviceMeasurement);
      EXPECT_FALSE(service->isEnabled());
      journal.push_back("discovered " + outcome(result));
    });
    service->setIsEnabled(false);
    events().peripheralDidDiscoverCharacteristicsForService(device, deviceService, error);
    EXPECT_EQ(happened(), (Journal{"discovered " + outcome(error),
                                   std::string("delegate characteristics 180d ") +
                                       (error ? "6" : "-") + " 2a37 2a39"}));
    EXPECT_TRUE(service->isEnabled());
  }
}

TEST_F(YMSCBPeripheralTest, ValuesGoToTheReaderOrWhileNotifyingToTheService) {
  bind();
  updateValue(deviceMeasurement, {1});
  EXPECT_EQ(happened(), Journal{"delegate value 2a37 01"}) << "nobody waits for it";
  EXPECT_EQ(measurement->value(), Bytes{1});

  measurement->readValueWithBlock(notingRead(journal, "first"));
  measurement->readValueWithBlock(notingRead(journal, "second"));
  updateValue(deviceMeasurement, {2}, kFailure);
  EXPECT_EQ(happened(), (Journal{"first 02 error 6", "delegate value 2a37 error 6"}));

  deviceMeasurement->notifies = true;
  updateValue(deviceMeasurement, {3});
  updateValue(deviceMeasurement, {4}, kFailure);
  EXPECT_EQ(happened(), (Journal{"handler measurement 03 ok", "delegate value 2a37 04",
                                 "handler measurement 04 error 6", "delegate value 2a37 error 6"}))
      << "each with its own value, although both came in one turn";
  EXPECT_EQ(measurement->readCallbacks().count(), 1U) << "the pending read stays pending";
}

TEST_F(YMSCBPeripheralTest, WhetherItNotifiesIsAskedWhenTheTurnComes) {
  bind();
  measurement->readValueWithBlock(notingRead(journal, "read"));
  deviceMeasurement->notifies = true;
  updateValue(deviceMeasurement, {1});
  deviceMeasurement->notifies = false;
  EXPECT_EQ(happened(), (Journal{"read 01 ok", "delegate value 2a37 01"}));
}

TEST_F(YMSCBPeripheralTest, AnswersReachWhoWaitsForThem) {
  bind();
  deviceMeasurement->knownDescriptors = {std::make_shared<FakeDescriptor>("2902")};
  measurement->discoverDescriptorsWithBlock([this](const auto& descriptors, const auto& error) {
    journal.push_back(std::to_string(descriptors.size()) + " " + outcome(error));
  });
  events().peripheralDidDiscoverDescriptorsForCharacteristic(device, deviceMeasurement, kFailure);
  EXPECT_EQ(happened(), (Journal{"1 error 6", "delegate descriptors 2a37 6 1"}));

  // Where nobody waits any more, a confirmation is the service's and a state only forwarded.
  control->writeByte(1, noting(journal, "write"));
  measurement->setNotifyValue(true, noting(journal, "notify"));
  for (const auto& error : {kFailure, kNoError}) {
    events().peripheralDidWriteValueForCharacteristic(device, deviceControl, error);
    events().peripheralDidUpdateNotificationStateForCharacteristic(device, deviceMeasurement,
                                                                   error);
  }
  EXPECT_EQ(happened(), (Journal{"write error 6", "delegate written 2a39 6",        //
                                 "notify error 6", "delegate notifying 2a37 no 6",  //
                                 "handler control none ok", "delegate written 2a39 -",
                                 "delegate notifying 2a37 no -"}));
}

TEST_F(YMSCBPeripheralTest, OtherEventsAreOnlyForwarded) {
  const auto descriptor = std::make_shared<FakeDescriptor>("2902");
  events().peripheralDidDiscoverIncludedServicesForService(device, deviceService, kNoError);
  events().peripheralDidUpdateValueForDescriptor(device, descriptor, kFailure);
  events().peripheralDidWriteValueForDescriptor(device, descriptor, kNoError);
  events().peripheralDidUpdateRSSI(device, kFailure);
  events().peripheralDidUpdateName(device);
  EXPECT_EQ(happened(), (Journal{"delegate included 180d -", "delegate descriptor 2902 6",
                                 "delegate descriptor written 2902 -", "delegate rssi 6",
                                 "delegate name MI Band 2"}));
  peripheral->readRSSI();
  EXPECT_EQ(device->journal, Journal{"readRSSI"});

  delegate = nullptr;
  events().peripheralDidUpdateName(device);
  EXPECT_TRUE(happened().empty()) << "held weakly";
}

TEST_F(YMSCBPeripheralTest, WhatTheTablesDoNotHaveIsOnlyForwarded) {
  bind();
  const auto strangeService = std::make_shared<FakeService>("1811");
  const auto ofStrangeService = strangeService->add("2a37");
  const auto undeclared = deviceService->add("2a38");
  const auto withoutService =
      std::make_shared<FakeCharacteristic>("2a37", std::weak_ptr<platform::Service>());
  deviceMeasurement->notifies = true;
  events().peripheralDidDiscoverCharacteristicsForService(device, strangeService, kNoError);
  for (const auto& characteristic : {ofStrangeService, undeclared, withoutService}) {
    events().peripheralDidDiscoverDescriptorsForCharacteristic(device, characteristic, kNoError);
    events().peripheralDidUpdateValueForCharacteristic(device, characteristic, kNoError);
    events().peripheralDidUpdateNotificationStateForCharacteristic(device, characteristic,
                                                                   kNoError);
    events().peripheralDidWriteValueForCharacteristic(device, characteristic, kNoError);
  }
  const auto lines = happened();
  EXPECT_EQ(lines.size(), 13U);
  for (const auto& line : lines) {
    EXPECT_TRUE(line.starts_with("delegate")) << line;
  }
}

TEST_F(YMSCBPeripheralTest, AnswersFindTheirCallbackAlthoughTheLinkEndedMeanwhile) {
  bind();
  measurement->readValueWithBlock(notingRead(journal, "read"));
  control->writeByte(1, noting(journal, "write"));
  events().peripheralDidUpdateValueForCharacteristic(device, deviceMeasurement, kFailure);
  events().peripheralDidWriteValueForCharacteristic(device, deviceControl, kFailure);
  // The platform lets go of the service, and so does the layer.
  device->known.clear();
  service->setCbService(nullptr);
  std::weak_ptr<FakeService> gone = deviceService;
  deviceService = nullptr;
  EXPECT_EQ(happened(), (Journal{"read none error 6", "delegate value 2a37 error 6",
                                 "write error 6", "delegate written 2a39 6"}));
  EXPECT_TRUE(gone.expired());

  // What comes after that has no service to go to.
  updateValue(deviceMeasurement, {1});
  EXPECT_EQ(happened(), Journal{"delegate value 2a37 01"});
}

TEST_F(YMSCBPeripheralTest, PendingCallbacksOutliveTheLinkAndTakeTheNextAnswer) {
  bind();
  measurement->readValueWithBlock(notingRead(journal, "before"));
  radio.delegate.lock()->centralManagerDidDisconnectPeripheral(*radio.manager, device, kFailure);
  phone.runLoop.runUntilIdle();
  measurement->readValueWithBlock(notingRead(journal, "after"));
  updateValue(deviceMeasurement, {1});
  EXPECT_EQ(happened(), (Journal{"before 01 ok", "delegate value 2a37 01"}));
}

TEST_F(YMSCBPeripheralTest, NothingReachesAPeripheralThatIsGone) {
  bind();
  deviceMeasurement->notifies = true;
  control->writeByte(1, noting(journal, "write"));
  device->linkState = PeripheralState::connecting;
  peripheral->connectWithOptions({}, notingConnect("never"));
  peripheral->resetWatchdog();
  phone.runLoop.runUntilIdle();
  peripheral->discoverServices({}, [](const auto&, const auto&) { FAIL(); });
  events().peripheralDidDiscoverServices(device, kNoError);
  events().peripheralDidDiscoverCharacteristicsForService(device, deviceService, kNoError);
  events().peripheralDidUpdateValueForCharacteristic(device, deviceMeasurement, kNoError);
  events().peripheralDidWriteValueForCharacteristic(device, deviceControl, kNoError);
  events().peripheralDidUpdateName(device);

  central->removeAllPeripherals();
  peripheral = nullptr;
  EXPECT_TRUE(device->delegate.expired()) << "what is queued holds it weakly";
  EXPECT_TRUE(happened().empty());
  phone.runLoop.runFor(std::chrono::minutes(1));
  EXPECT_EQ(requested(), Journal{"connect 11111111 0"}) << "its watchdog went with it";
}

TEST_F(YMSCBPeripheralTest, ItMayGoInTheMiddleOfACallback) {
  bind();
  std::weak_ptr<YMSCBPeripheral> alive = peripheral;
  peripheral->discoverServices({}, [this](const auto&, const auto&) {
    central->removeAllPeripherals();
    peripheral = nullptr;
  });
  events().peripheralDidDiscoverServices(device, kNoError);
  events().peripheralDidUpdateName(device);
  EXPECT_EQ(happened(), Journal{"delegate services - 180d"});
  EXPECT_TRUE(alive.expired());
}

}  // namespace
}  // namespace wrixel2::bleobjects
