#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

class GattTest : public BluezFixture {
 protected:
  /// bluetoothd announces a value, as it does for notifications and for what a read gave.
  void announceValue(const std::string& path, const Bytes& value) {
    bluez.change(path, kCharacteristicInterface, {{"Value", value}});
  }
  void subscribe(std::string_view uuid) {
    peripheral->setNotifyValue(true, characteristic(uuid));
    EXPECT_EQ(events(), (Events{"notifying " + std::string(uuid) + " yes -"}));
    bluez.takeCalls();
  }
  void loseLink() {
    bluez.disconnected(kBandPath, "org.bluez.Reason.Timeout");
    bluez.change(kBandPath, kDeviceInterface, {{"Connected", false}});
  }
};

// --- Discovery ---

TEST_F(GattTest, DiscoveryWaitsForTheServicesAndForThoseAnnouncedLate) {
  bluez.byHand = {"Connect", "GetManagedObjects"};
  for (const auto& path : {kTime, kSteps, kBandPath + "/service0010"}) {
    bluez.remove(path);
  }
  makeManager();
  settle();
  bluez.byHand.erase("GetManagedObjects");
  bluez.stop();
  bluez.restart();
  settle();
  bluez.byHand.insert("GetManagedObjects");
  peripheral = bandPeripheral();
  manager->connectPeripheral(peripheral, {});
  settle();
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", true}});
  bluez.reply("Connect");
  settle();
  recorder->events.clear();
  peripheral->discoverServices(std::nullopt);
  EXPECT_EQ(events(), (Events{})) << "objects of the last link do not count";
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", true}});
  EXPECT_EQ(events(), (Events{}));
  // Only the reply has the last of them.
  placeGattObjects();
  bluez.byHand.clear();
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", false}});
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", true}});
  EXPECT_EQ(events(), (Events{"services - fee0 fee1"}));
}

TEST_F(GattTest, DiscoveryFindsWhatIsAskedForAndAddsToWhatIsKnown) {
  connect();
  peripheral->discoverServices(std::vector<UUID>{UUID::withString("fee1")});
  peripheral->discoverServices(std::vector<UUID>{UUID::withString("fee0")});
  EXPECT_EQ(events(), (Events{"services - fee1 fee0", "services - fee1 fee0"}));
  const auto services = peripheral->services();
  peripheral->discoverCharacteristics(std::vector<UUID>{UUID::withString("ff07")}, services[1]);
  peripheral->discoverCharacteristics(std::nullopt, services[0]);
  settle();
  peripheral->discoverDescriptors(characteristic("ff09"));
  EXPECT_EQ(events(), (Events{"characteristics fee0 - ff07", "characteristics fee1 - ff09",
                              "descriptors ff09 - 1"}));
  const auto descriptor = characteristic("ff09")->descriptors().front();
  peripheral->readValueForDescriptor(descriptor);
  peripheral->writeValueForDescriptor({0x01, 0x00}, descriptor);
  peripheral->readRSSI();
  EXPECT_EQ(events(), (Events{"rssi 0", "descriptor 2902 -", "descriptor written 2902 -"}));
}

// --- Reads and notifications ---

TEST_F(GattTest, WhatIsAnnouncedDuringAReadIsSortedOutByItsAnswer) {
  struct Case {
    const char* name;
    bool isSubscribed;
    std::vector<Bytes> announced;
    bool succeeds;
    Events events;
  };
  const std::vector<Case> cases = {
      {"a read's own", false, {{0x01}}, true, {"value 2a2b 0f"}},
      {"nothing", true, {}, true, {"value 2a2b 0f"}},
      {"the last is the read's",
       true,
       {{0x01}, {0x02}, {0x0F}},
       true,
       {"value 2a2b 01", "value 2a2b 02", "value 2a2b 0f"}},
      {"a failed read has none",
       true,
       {{0x01}, {0x02}},
       false,
       {"value 2a2b 01", "value 2a2b 02", "value 2a2b error 10"}},
      {"others' notifications", false, {{0x01}, {0x02}}, false, {"value 2a2b error 10"}}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    discover();
    if (one.isSubscribed) {
      subscribe("2a2b");
    }
    bluez.byHand = {"ReadValue"};
    peripheral->readValueForCharacteristic(characteristic("2a2b"));
    settle();
    for (const auto& value : one.announced) {
      announceValue(kTime, value);
    }
    EXPECT_EQ(events(), (Events{})) << "not before the answer tells which is which";
    if (one.succeeds) {
      bluez.reply("ReadValue", {Bytes{0x0F}});
    } else {
      bluez.fail("ReadValue", "org.bluez.Error.Failed", "Operation failed with ATT error: 0x0a");
    }
    EXPECT_EQ(events(), one.events);
    bluez.byHand.clear();
    manager.reset();
    bluez.takeCalls();
    bluez.place(kBandPath, kDeviceInterface, band());
  }
}

TEST_F(GattTest, ValuesAnnouncedBeforeTheSubscriptionsAnswerComeAfterIt) {
  discover();
  bluez.byHand = {"StartNotify"};
  peripheral->setNotifyValue(true, characteristic("2a2b"));
  settle();
  announceValue(kTime, {0x01});
  EXPECT_EQ(events(), (Events{}));
  bluez.reply("StartNotify");
  EXPECT_EQ(events(), (Events{"notifying 2a2b yes -", "value 2a2b 01"}));

  peripheral->setNotifyValue(true, characteristic("ff07"));
  settle();
  announceValue(kSteps, {0x01});
  bluez.fail("StartNotify", "org.bluez.Error.NotSupported");
  EXPECT_EQ(events(), (Events{"notifying ff07 no 0"}));
}

TEST_F(GattTest, OnlyWhatWeSubscribedToIsNotified) {
  discover();
  announceValue(kTime, {0x01});
  announceValue(kBandPath + "/service0030/char0031", {0x01});
  EXPECT_EQ(events(), (Events{}));
  subscribe("2a2b");
  announceValue(kTime, {0x02});
  announceValue(kTime, {0x03});
  bluez.change(kTime, kCharacteristicInterface, {{"Value", 5}});
  EXPECT_EQ(events(), (Events{"value 2a2b 02", "value 2a2b 03"}));
  peripheral->setNotifyValue(true, characteristic("2a2b"));
  EXPECT_EQ(calls(), (Calls{})) << "it is on already";
  peripheral->setNotifyValue(false, characteristic("2a2b"));
  peripheral->setNotifyValue(false, characteristic("2a2b"));
  EXPECT_EQ(calls(), (Calls{"char0011 StopNotify"}));
  announceValue(kTime, {0x04});
  EXPECT_EQ(events(),
            (Events{"notifying 2a2b yes -", "notifying 2a2b no -", "notifying 2a2b no -"}));
}

TEST_F(GattTest, SubscriptionsAreGivenBackWhenTheLinkEnds) {
  discover();
  subscribe("2a2b");
  bluez.byHand = {"StartNotify"};
  peripheral->setNotifyValue(true, characteristic("ff07"));
  settle();
  const auto time = characteristic("2a2b");
  bluez.takeCalls();
  loseLink();
  EXPECT_EQ(events(), (Events{"notifying ff07 no 3", "disconnected 6"}));
  // One of them was under way only, but may be in force by now.
  EXPECT_EQ(calls(), (Calls{"char0011 StopNotify", "char0013 StopNotify"}));
  EXPECT_FALSE(time->isNotifying());
}

TEST_F(GattTest, ASubscriptionIsRenewedWhenItsServiceWentAndCameBack) {
  discover();
  subscribe("2a2b");
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", false}});
  bluez.remove(kTime);
  settle();
  peripheral->readValueForCharacteristic(characteristic("2a2b"));
  EXPECT_EQ(events(), (Events{"value 2a2b error 2"}));
  placeGattObjects();
  bluez.announce(kTime);
  bluez.announce(kSteps);
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", true}});
  EXPECT_EQ(calls(), (Calls{"char0011 StartNotify"}));
  announceValue(kTime, {0x07});
  EXPECT_EQ(events(), (Events{"value 2a2b 07"}));
}

// --- Writes ---

TEST_F(GattTest, EverythingKeepsItsOrderAlsoAcrossCharacteristics) {
  discover();
  bluez.byHand = {"WriteValue", "ReadValue"};
  peripheral->writeValueForCharacteristic({0x01}, characteristic("2a2b"), WriteType::withResponse);
  peripheral->writeValueForCharacteristic({0x02}, characteristic("2a2b"),
                                          WriteType::withoutResponse);
  peripheral->readValueForCharacteristic(characteristic("ff09"));
  peripheral->writeValueForCharacteristic({0x03}, characteristic("ff07"), WriteType::withResponse);
  EXPECT_EQ(calls(), (Calls{"char0011 WriteValue 01 request"})) << "one at a time";
  bluez.reply("WriteValue");
  EXPECT_EQ(calls(), (Calls{"char0011 WriteValue 02 command"}));
  bluez.reply("WriteValue");
  EXPECT_EQ(calls(), (Calls{"char0021 ReadValue"}));
  bluez.fail("ReadValue", "org.bluez.Error.NotPermitted", "Read not permitted");
  EXPECT_EQ(calls(), (Calls{"char0013 WriteValue 03 request"}));
  bluez.fail("WriteValue", "org.bluez.Error.Failed", "Operation failed with ATT error: 0x80");
  EXPECT_EQ(events(), (Events{"written 2a2b -", "value ff09 error 0", "written ff07 128"}));
}

TEST_F(GattTest, AnOperationThatAnotherProgramBlocksIsTriedAgainForAWhile) {
  discover();
  subscribe("2a2b");
  bluez.byHand = {"ReadValue"};
  peripheral->readValueForCharacteristic(characteristic("2a2b"));
  peripheral->writeValueForCharacteristic({0x01}, characteristic("2a2b"), WriteType::withResponse);
  settle();
  announceValue(kTime, {0x01});
  bluez.fail("ReadValue", "org.bluez.Error.InProgress");
  EXPECT_EQ(events(), (Events{"value 2a2b 01"}));
  for (int attempt = 2; attempt <= 20; ++attempt) {
    EXPECT_EQ(bluez.pending(), (Calls{}));
    runFor(100ms);
    bluez.fail("ReadValue", "org.bluez.Error.InProgress");
    settle();
  }
  EXPECT_EQ(events(), (Events{"value 2a2b error 0", "written 2a2b -"}));
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(GattTest, WritesWithoutResponseAreBoundedAndTheirFailuresLogged) {
  discover();
  bluez.byHand = {"WriteValue"};
  for (int number = 0; number < 65; ++number) {
    peripheral->writeValueForCharacteristic({0x01}, characteristic("2a2b"),
                                            WriteType::withoutResponse);
  }
  EXPECT_TRUE(log.contains(LogLevel::warning, "is dropped: 64 writes wait already"));
  settle();
  bluez.fail("WriteValue", "org.bluez.Error.Failed", "Not connected");
  settle();
  EXPECT_TRUE(log.contains(LogLevel::warning, "char0011 failed"));
  std::size_t sent = 1;
  for (; !bluez.pending().empty(); ++sent) {
    bluez.reply("WriteValue");
    settle();
  }
  EXPECT_EQ(sent, 64U);
  EXPECT_EQ(events(), (Events{}));
}

// --- Ends in the middle ---

TEST_F(GattTest, EverythingIsAnsweredOnceBeforeTheDisconnectionIsTold) {
  discover();
  bluez.byHand = {"ReadValue"};
  bluez.change(kBandPath, kDeviceInterface, {{"ServicesResolved", false}});
  peripheral->readValueForCharacteristic(characteristic("2a2b"));
  peripheral->writeValueForCharacteristic({0x01}, characteristic("2a2b"),
                                          WriteType::withoutResponse);
  peripheral->writeValueForCharacteristic({0x01}, characteristic("2a2b"), WriteType::withResponse);
  peripheral->setNotifyValue(true, characteristic("ff09"));
  settle();
  peripheral->discoverServices(std::nullopt);
  const auto time = characteristic("2a2b");
  bluez.fail("ReadValue", "org.bluez.Error.Failed", "Operation failed with ATT error: 0x0e");
  bluez.byHand = {"WriteValue"};
  settle();
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", false}});
  settle();
  // Known to be dead, but not told yet.
  peripheral->writeValueForCharacteristic({0x02}, time, WriteType::withResponse);
  runFor(500ms);
  EXPECT_EQ(events(), (Events{"value 2a2b error 14", "written 2a2b 3", "notifying ff09 no 3",
                              "services 3", "written 2a2b 3", "disconnected 7"}));
  peripheral->readValueForCharacteristic(time);
  EXPECT_EQ(events(), (Events{"value 2a2b error 3"}));
  // An answer that comes late is nobody's.
  bluez.reply("WriteValue");
  EXPECT_EQ(events(), (Events{}));
}

TEST_F(GattTest, WhatIsAskedBetweenTheEndAndItsNewsIsAnsweredBeforeTheNews) {
  discover();
  const auto time = characteristic("2a2b");
  loseLink();
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", false}});
  loop.post([this, time] { peripheral->readValueForCharacteristic(time); });
  EXPECT_EQ(events(), (Events{"value 2a2b error 3", "disconnected 6"}));
}

TEST_F(GattTest, AnObjectThatGoesAnswersWhatIsPendingOnIt) {
  discover();
  bluez.byHand = {"ReadValue"};
  peripheral->readValueForCharacteristic(characteristic("2a2b"));
  peripheral->readValueForCharacteristic(characteristic("2a2b"));
  peripheral->writeValueForCharacteristic({0x01}, characteristic("ff09"), WriteType::withResponse);
  settle();
  bluez.remove(kTime);
  EXPECT_EQ(events(), (Events{"value 2a2b error 2", "value 2a2b error 2", "written ff09 -"}));
}

TEST_F(GattTest, ObjectsOfAnEarlierLinkNameNothingOnThisOne) {
  discover();
  const auto oldService = peripheral->services().front();
  const auto oldTime = characteristic("2a2b");
  loseLink();
  settle();
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), (Events{"disconnected 6", "connected"}));
  peripheral->discoverServices(std::nullopt);
  settle();
  peripheral->discoverCharacteristics(std::nullopt, oldService);
  peripheral->readValueForCharacteristic(oldTime);
  peripheral->discoverDescriptors(oldTime);
  EXPECT_EQ(events(), (Events{"services - fee0 fee1", "characteristics fee0 2 2a2b ff07",
                              "value 2a2b error 2", "descriptors 2a2b 2 0"}));
}

}  // namespace
}  // namespace wrixel2::platform::bluez
