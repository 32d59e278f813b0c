#include "platform/linux/bluez/BluezDevice.h"
#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

const std::vector<UUID> kServices = {UUID::withString("fee0"), UUID::withString("180d")};

class ScanTest : public BluezFixture {
 protected:
  void scan(bool allowDuplicates = true) {
    manager->scanForPeripheralsWithServices(
        kServices, {{std::string(kScanOptionAllowDuplicates), allowDuplicates}});
  }
  /// Scanning is on, as bluetoothd says too.
  void startScanning(bool allowDuplicates = true) {
    makeManager();
    settle();
    scan(allowDuplicates);
    settle();
    bluez.change(kHci0, kAdapterInterface, {{"Discovering", true}});
    settle();
    bluez.takeCalls();
    recorder->events.clear();
  }
  void advertise() { bluez.change(kBandPath, kDeviceInterface, {{"RSSI", -60}}); }
};

TEST_F(ScanTest, AsksForEverythingOfTheServicesOnTheAir) {
  makeManager();
  settle();
  scan();
  EXPECT_EQ(calls(), (Calls{"hci0 SetDiscoveryFilter Transport=le DuplicateData=1 UUIDs=fee0,180d",
                            "hci0 StartDiscovery"}));
  manager->stopScan();
  EXPECT_EQ(calls(), (Calls{"hci0 StopDiscovery"}));
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(calls().front(), "hci0 SetDiscoveryFilter Transport=le DuplicateData=1");
}

TEST_F(ScanTest, AdvertisementsAreReadFromTheDevicesProperties) {
  struct Case {
    const char* name;
    Dictionary device;
    Events events;
  };
  const std::vector<Case> cases = {
      {"all of it",
       {{"RSSI", -71}, {"ManufacturerData", Dictionary{{"343", Bytes{0x01, 0x02}}}}},
       {"found MI Band 2 -71 57010102 MI Band 2"}},
      {"a company number of two bytes",
       {{"ManufacturerData", Dictionary{{"65534", Bytes{}}}}},
       {"found MI Band 2 127 feff MI Band 2"}},
      {"manufacturer data that is none",
       {{"ManufacturerData", Dictionary{{"x", Bytes{1}}, {"70000", 3}}}},
       {"found MI Band 2 127 - MI Band 2"}},
      {"another service only", {{"UUIDs", Array{"0000180f-0000-1000-8000-00805f9b34fb"}}}, {}},
      {"no service", {{"UUIDs", Array{}}}, {}},
      {"services that are none", {{"UUIDs", Array{3, "x"}}}, {}}};
  startScanning();
  int number = 10;
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    bluez.add(kHci0 + "/dev_C0_01_02_03_04_" + std::to_string(number++), kDeviceInterface,
              band(one.device));
    EXPECT_EQ(events(), one.events);
  }
}

TEST_F(ScanTest, AnAliasThatIsTheAddressIsNoName) {
  startScanning();
  Dictionary unnamed = band({{"Alias", "C0-01-02-03-04-05"}});
  unnamed.erase("Name");
  bluez.add(kBandPath, kDeviceInterface, unnamed);
  EXPECT_EQ(events(), (Events{"found (null) 127 - -"}));
  recorder->found.front()->setDelegate(recorder);
  bluez.change(kBandPath, kDeviceInterface, {{"Name", "MI Band 2"}, {"RSSI", -50}});
  EXPECT_EQ(events(), (Events{"name MI Band 2", "found MI Band 2 -50 - MI Band 2"}));
  EXPECT_EQ(recorder->found.front(), recorder->found.back());
}

TEST_F(ScanTest, OnlyWhatAnAdvertisementChangesIsAnAdvertisement) {
  startScanning();
  bluez.change(kBandPath, kDeviceInterface, {}, {"RSSI"});
  bluez.change(kBandPath, kDeviceInterface, {{"Paired", true}});
  bluez.change(kHci0 + "/dev_00_00_00_00_00_00", kDeviceInterface, {{"RSSI", -40}});
  EXPECT_EQ(events(), (Events{}));
  advertise();
  bluez.change(kBandPath, kDeviceInterface, {{"ManufacturerData", Dictionary{}}});
  EXPECT_EQ(events(),
            (Events{"found MI Band 2 -60 - MI Band 2", "found MI Band 2 -60 - MI Band 2"}));
}

TEST_F(ScanTest, ADeviceIsToldOnceUnlessDuplicatesAreAskedFor) {
  startScanning(false);
  advertise();
  advertise();
  EXPECT_EQ(events().size(), 1U);
  scan(false);
  advertise();
  EXPECT_EQ(events().size(), 1U) << "a new scan begins anew";
}

TEST_F(ScanTest, AnotherProgramsScanIsNotOurs) {
  makeManager();
  settle();
  recorder->events.clear();
  advertise();
  EXPECT_EQ(events(), (Events{}));
  scan();
  settle();
  advertise();
  EXPECT_EQ(events().size(), 1U);
  advertise();
  manager->stopScan();
  settle();
  advertise();
  EXPECT_EQ(events(), (Events{})) << "nothing comes after the end, not even what was on its way";
}

TEST_F(ScanTest, AKnownDeviceWhoseServicesAreForgottenIsStillFound) {
  startScanning();
  advertise();
  EXPECT_EQ(events().size(), 1U);
  bluez.change(kBandPath, kDeviceInterface, {{"UUIDs", Array{}}});
  advertise();
  EXPECT_EQ(events().size(), 1U);
  const std::string stranger = kHci0 + "/dev_11_22_33_44_55_66";
  bluez.add(stranger, kDeviceInterface,
            {{"Address", "11:22:33:44:55:66"}, {"Name", "X"}, {"UUIDs", Array{}}, {"RSSI", -60}});
  EXPECT_EQ(events(), (Events{})) << "an unknown one has to offer what is asked for";
}

TEST_F(ScanTest, SoIsOneOfAnEarlierRun) {
  bluez.place(kBandPath, kDeviceInterface, band({{"UUIDs", Array{}}}));
  const auto identifier = identifierOfDevice(band());
  makeManager({identifier});
  settle();
  scan();
  settle();
  recorder->events.clear();
  advertise();
  EXPECT_EQ(events().size(), 1U);
}

TEST_F(ScanTest, StoppingWhileStartingEndsInSilence) {
  bluez.byHand = {"SetDiscoveryFilter", "StartDiscovery"};
  makeManager();
  settle();
  scan();
  settle();
  manager->stopScan();
  bluez.reply("SetDiscoveryFilter");
  settle();
  EXPECT_EQ(bluez.pending(), (Calls{}));
  scan();
  settle();
  bluez.reply("SetDiscoveryFilter");
  settle();
  manager->stopScan();
  bluez.reply("StartDiscovery");
  EXPECT_EQ(calls().back(), "hci0 StopDiscovery");
}

TEST_F(ScanTest, ADiscoveryThatEndsByItselfIsAskedForAgain) {
  startScanning();
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", false}});
  runFor(999ms);
  EXPECT_EQ(calls(), (Calls{}));
  bluez.byHand = {"StartDiscovery"};
  runFor(1ms);
  // It may still be on for bluetoothd, which then says so.
  bluez.fail("StartDiscovery", "org.bluez.Error.InProgress");
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", true}});
  EXPECT_EQ(calls().back(), "hci0 StartDiscovery");
  EXPECT_EQ(loop.pendingTimers(), 0U);
  advertise();
  EXPECT_EQ(events().size(), 1U);
}

TEST_F(ScanTest, AScanThatCannotBeStartedIsTriedAgainEverLessOften) {
  bluez.byHand = {"StartDiscovery"};
  makeManager();
  settle();
  scan();
  for (const auto pause : {1s, 2s, 4s, 8s, 8s}) {
    settle();
    bluez.fail("StartDiscovery", "org.bluez.Error.NotReady");
    runFor(pause - 1ms);
    EXPECT_EQ(bluez.pending(), (Calls{}));
    runFor(1ms);
    EXPECT_EQ(bluez.pending(), (Calls{"StartDiscovery"}));
  }
  manager->stopScan();
  bluez.fail("StartDiscovery", "org.bluez.Error.NotReady");
  settle();
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(ScanTest, AScanPausesForAConnectionAndGoesOnAfterIt) {
  startScanning();
  bluez.byHand = {"StopDiscovery", "Connect"};
  peripheral = bandPeripheral();
  manager->connectPeripheral(peripheral, {});
  settle();
  EXPECT_EQ(bluez.pending(), (Calls{"StopDiscovery"})) << "first the end of the scan";
  bluez.reply("StopDiscovery");
  settle();
  EXPECT_EQ(bluez.pending(), (Calls{"Connect"}));
  advertise();
  EXPECT_EQ(events(), (Events{}));
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", true}});
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{"connected"}));
  EXPECT_EQ(calls().back(), "hci0 StartDiscovery");
}

}  // namespace
}  // namespace wrixel2::platform::bluez
