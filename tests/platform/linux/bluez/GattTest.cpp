#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

constexpr auto kWithoutResponse = WriteType::withoutResponse;
constexpr const char* kAttError = "Operation failed with ATT error: ";

class GattTest : public BluezFixture {
 protected:
  /// bluetoothd announces a value, as it does for notifications and for what a read gave.
  BluezFixture& announceValue(const std::string& path, const Bytes& value) {
    bluez.change(path, kCharacteristicInterface, {{"Value", value}});
    return settle();
  }
  BluezFixture& failWith(std::string_view member, const std::string& attError) {
    return fail(member, "Failed", kAttError + attError);
  }
  void subscribe(std::string_view uuid) {
    EXPECT_EQ(setNotify(uuid, true).events(), fmt::format("notifying {} yes -", uuid));
    bluez.takeCalls();
  }
  BluezFixture& setResolved(bool areResolved) {
    return changeBand({{"ServicesResolved", areResolved}});
  }
};

// --- Discovery ---

TEST_F(GattTest, DiscoveryWaitsForTheServicesAndForThoseAnnouncedLate) {
  bluez.byHand = {"Connect"};
  for (const auto& path : {kTime, kSteps, kBandPath + "/service0010"}) {
    bluez.remove(path);
  }
  makeManager();
  bluez.byHand.insert("GetManagedObjects");
  askToConnect();
  linkBecomes(true);
  reply("Connect");
  forget();
  peripheral->discoverServices(std::nullopt);
  EXPECT_EQ(events(), "") << "objects of the last link do not count";
  EXPECT_EQ(setResolved(true).events(), "");
  // Only the reply has the last of them; one to an earlier question does not count.
  placeGattObjects();
  setResolved(false);
  setResolved(true);
  EXPECT_EQ(fail("GetManagedObjects", "Failed").events(), "");
  bluez.byHand.clear();
  EXPECT_EQ(reply("GetManagedObjects", {bluez.managedObjects()}).events(), "services - fee0 fee1");
}

TEST_F(GattTest, DiscoveryFindsWhatIsAskedForAndAddsToWhatIsKnown) {
  connect();
  peripheral->discoverServices(std::vector<UUID>{UUID::withString("fee1")});
  peripheral->discoverServices(std::vector<UUID>{UUID::withString("fee0")});
  EXPECT_EQ(events(), "services - fee1 fee0, services - fee1 fee0");
  const auto services = peripheral->services();
  peripheral->discoverCharacteristics(std::vector<UUID>{UUID::withString("ff07")}, services[1]);
  peripheral->discoverCharacteristics(std::nullopt, services[0]);
  settle();
  peripheral->discoverDescriptors(characteristic("ff09"));
  EXPECT_EQ(events(),
            "characteristics fee0 - ff07, characteristics fee1 - ff09, descriptors ff09 - 1");
  const auto descriptor = characteristic("ff09")->descriptors().front();
  peripheral->readValueForDescriptor(descriptor);
  peripheral->writeValueForDescriptor({0x01, 0x00}, descriptor);
  peripheral->readRSSI();
  EXPECT_EQ(events(), "rssi 0, descriptor 2902 -, descriptor written 2902 -");
}

// --- Reads and notifications ---

TEST_F(GattTest, WhatIsAnnouncedDuringAReadIsSortedOutByItsAnswer) {
  const struct {
    const char* name;
    bool isSubscribed;
    int announced;  ///< that many values: 01, 02, ...
    bool succeeds;  ///< with 03
    const char* events;
  } cases[] = {
      {"a read's own", false, 1, true, "value 2a2b 03"},
      {"nothing", true, 0, true, "value 2a2b 03"},
      {"the last is the read's", true, 3, true, "value 2a2b 01, value 2a2b 02, value 2a2b 03"},
      {"a failed read", true, 2, false, "value 2a2b 01, value 2a2b 02, value 2a2b error 10"},
      {"others' notifications", false, 2, false, "value 2a2b error 10"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    playAnew();
    discover();
    if (one.isSubscribed) {
      subscribe("2a2b");
    }
    bluez.byHand = {"ReadValue"};
    read("2a2b");
    settle();
    for (int number = 1; number <= one.announced; ++number) {
      announceValue(kTime, {static_cast<std::uint8_t>(number)});
    }
    EXPECT_EQ(events(), "") << "not before the answer tells which is which";
    if (one.succeeds) {
      reply("ReadValue", {Bytes{0x03}});
    } else {
      failWith("ReadValue", "0x0a");
    }
    EXPECT_EQ(events(), one.events);
  }
}

TEST_F(GattTest, OnlyWhatWeSubscribedToIsNotified) {
  discover();
  announceValue(kTime, {0x01});
  EXPECT_EQ(announceValue(kBandPath + "/service0030/char0031", {0x01}).events(), "");
  bluez.byHand = {"StartNotify"};
  setNotify("2a2b", true);
  settle();
  EXPECT_EQ(announceValue(kTime, {0x01}).events(), "") << "before the subscription's answer";
  EXPECT_EQ(reply("StartNotify").events(), "notifying 2a2b yes -, value 2a2b 01");
  announceValue(kTime, {0x02});
  bluez.change(kTime, kCharacteristicInterface, {{"Value", 5}});
  EXPECT_EQ(events(), "value 2a2b 02");
  bluez.takeCalls();
  EXPECT_EQ(setNotify("2a2b", true).calls(), "") << "it is on already";
  setNotify("2a2b", false);
  EXPECT_EQ(setNotify("2a2b", false).calls(), "char0011 StopNotify");
  EXPECT_EQ(announceValue(kTime, {0x04}).events(),
            "notifying 2a2b yes -, notifying 2a2b no -, notifying 2a2b no -");

  setNotify("ff07", true);
  settle();
  announceValue(kSteps, {0x01});
  EXPECT_EQ(fail("StartNotify", "NotSupported").events(), "notifying ff07 no 0");
}

TEST_F(GattTest, SubscriptionsAreGivenBackWhenTheLinkEnds) {
  discover();
  subscribe("2a2b");
  bluez.byHand = {"StartNotify"};
  setNotify("ff07", true);
  const auto time = characteristic("2a2b");
  forget();
  EXPECT_EQ(loseLink().events(), "notifying ff07 no 3, disconnected 6");
  // One of them was under way only, but may be in force by now.
  EXPECT_EQ(calls(), "char0011 StopNotify, char0013 StopNotify");
  EXPECT_FALSE(time->isNotifying());

  // Not to objects that are gone.
  playAnew();
  discover();
  subscribe("2a2b");
  subscribe("ff07");
  bluez.remove(kTime);
  loseLink();
  EXPECT_EQ(calls(), "char0013 StopNotify");
}

TEST_F(GattTest, ASubscriptionIsRenewedWhenItsServiceWentAndCameBack) {
  discover();
  subscribe("2a2b");
  setResolved(false);
  bluez.remove(kTime);
  settle();
  read("2a2b");
  EXPECT_EQ(events(), "value 2a2b error 2");
  placeGattObjects();
  bluez.announce(kTime);
  bluez.announce(kSteps);
  EXPECT_EQ(setResolved(true).calls(), "char0011 StartNotify");
  EXPECT_EQ(announceValue(kTime, {0x07}).events(), "value 2a2b 07");

  // Where that fails there is none any more, and it can be asked for again.
  bluez.byHand = {"StartNotify"};
  bluez.remove(kTime);
  placeGattObjects();
  bluez.announce(kTime);
  settle();
  EXPECT_EQ(failWith("StartNotify", "0x0e").events(), "");
  EXPECT_TRUE(log.contains(LogLevel::warning, "char0011 are not renewed"));
  EXPECT_FALSE(characteristic("2a2b")->isNotifying());
  EXPECT_EQ(announceValue(kTime, {0x08}).events(), "");
  bluez.byHand.clear();
  EXPECT_EQ(setNotify("2a2b", true).events(), "notifying 2a2b yes -");
}

// --- Writes ---

TEST_F(GattTest, EverythingKeepsItsOrderAlsoAcrossCharacteristics) {
  discover();
  bluez.byHand = {"WriteValue", "ReadValue"};
  write("2a2b", {0x01});
  write("2a2b", {0x02}, kWithoutResponse);
  read("ff09");
  write("ff07", {0x03});
  EXPECT_EQ(calls(), "char0011 WriteValue 01 request") << "one at a time";
  EXPECT_EQ(reply("WriteValue").calls(), "char0011 WriteValue 02 command");
  EXPECT_EQ(reply("WriteValue").calls(), "char0021 ReadValue");
  EXPECT_EQ(fail("ReadValue", "NotPermitted", "Read not permitted").calls(),
            "char0013 WriteValue 03 request");
  EXPECT_EQ(failWith("WriteValue", "0x80").events(),
            "written 2a2b -, value ff09 error 0, written ff07 128");
}

TEST_F(GattTest, AnOperationThatAnotherProgramBlocksIsTriedAgainForAWhile) {
  discover();
  subscribe("2a2b");
  bluez.byHand = {"ReadValue"};
  read("2a2b");
  write("2a2b", {0x01});
  settle();
  announceValue(kTime, {0x01});
  EXPECT_EQ(fail("ReadValue", "InProgress").events(), "value 2a2b 01");
  for (int attempt = 2; attempt <= 20; ++attempt) {
    EXPECT_EQ(bluez.pending(), "");
    runFor(100ms);
    fail("ReadValue", "InProgress");
  }
  EXPECT_EQ(events(), "value 2a2b error 0, written 2a2b -");
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(GattTest, WritesWithoutResponseAreBoundedAndTheirFailuresLogged) {
  discover();
  bluez.byHand = {"WriteValue"};
  for (int number = 0; number < 65; ++number) {
    write("2a2b", {0x01}, kWithoutResponse);
  }
  EXPECT_TRUE(log.contains(LogLevel::warning, "is dropped: 64 writes wait already"));
  settle();
  fail("WriteValue", "Failed", "Not connected");
  EXPECT_TRUE(log.contains(LogLevel::warning, "char0011 failed"));
  std::size_t sent = 1;
  for (; !bluez.pending().empty(); ++sent) {
    reply("WriteValue");
  }
  EXPECT_EQ(sent, 64U);
  EXPECT_EQ(events(), "");
}

// --- Ends in the middle ---

TEST_F(GattTest, EverythingIsAnsweredOnceBeforeTheDisconnectionIsTold) {
  discover();
  bluez.byHand = {"ReadValue"};
  setResolved(false);
  read("2a2b");
  write("2a2b", {0x01}, kWithoutResponse);
  write("2a2b", {0x01});
  setNotify("ff09", true);
  settle();
  peripheral->discoverServices(std::nullopt);
  const auto time = characteristic("2a2b");
  bluez.byHand = {"WriteValue"};
  failWith("ReadValue", "0x0e");
  settle();
  linkBecomes(false);
  // Known to be dead, but not told yet.
  peripheral->writeValueForCharacteristic({0x02}, time, WriteType::withResponse);
  EXPECT_EQ(runFor(500ms).events(),
            "value 2a2b error 14, written 2a2b 3, notifying ff09 no 3, services 3, written 2a2b 3, "
            "disconnected 7");
  peripheral->readValueForCharacteristic(time);
  EXPECT_EQ(events(), "value 2a2b error 3");
  EXPECT_EQ(reply("WriteValue").events(), "") << "an answer that comes late is nobody's";
}

TEST_F(GattTest, WhatIsAskedBetweenTheEndAndItsNewsIsAnsweredBeforeTheNews) {
  discover();
  const auto time = characteristic("2a2b");
  bluez.disconnected(kBandPath, "org.bluez.Reason.Timeout");
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", false}});
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", false}});
  loop.post([this, time] { peripheral->readValueForCharacteristic(time); });
  EXPECT_EQ(events(), "value 2a2b error 3, disconnected 6");
}

TEST_F(GattTest, AnObjectThatGoesAnswersWhatIsPendingOnIt) {
  discover();
  bluez.byHand = {"ReadValue"};
  read("2a2b");
  read("2a2b");
  write("ff09", {0x01});
  settle();
  bluez.remove(kTime);
  EXPECT_EQ(events(), "value 2a2b error 2, value 2a2b error 2, written ff09 -");
}

TEST_F(GattTest, ObjectsOfAnEarlierLinkNameNothingOnThisOne) {
  discover();
  const auto oldService = peripheral->services().front();
  const auto oldTime = characteristic("2a2b");
  loseLink();
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), "disconnected 6, connected");
  peripheral->discoverServices(std::nullopt);
  settle();
  peripheral->discoverCharacteristics(std::nullopt, oldService);
  peripheral->readValueForCharacteristic(oldTime);
  peripheral->discoverDescriptors(oldTime);
  EXPECT_EQ(events(),
            "services - fee0 fee1, characteristics fee0 2 2a2b ff07, value 2a2b error 2, "
            "descriptors 2a2b 2 0");
}

}  // namespace
}  // namespace wrixel2::platform::bluez
