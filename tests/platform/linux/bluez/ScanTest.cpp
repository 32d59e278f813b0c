#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

constexpr const char* kFilter = "hci0 SetDiscoveryFilter Transport=le DuplicateData=1";
constexpr const char* kFound = "found MI Band 2 -60 - MI Band 2";

class ScanTest : public BluezFixture {
 protected:
  void scan(bool allowDuplicates = true) {
    manager->scanForPeripheralsWithServices(
        std::vector<UUID>{UUID::withString("fee0"), UUID::withString("180d")},
        {{std::string(kScanOptionAllowDuplicates), allowDuplicates}});
    settle();
  }
  /// Scanning is on, as bluetoothd says too.
  void startScanning(bool allowDuplicates = true) {
    makeManager();
    scan(allowDuplicates);
    setDiscovering(true);
    forget();
  }
  BluezFixture& setDiscovering(bool isOn) {
    bluez.change(kHci0, kAdapterInterface, {{"Discovering", isOn}});
    return settle();
  }
  BluezFixture& advertise() { return changeBand({{"RSSI", -60}}); }
};

TEST_F(ScanTest, AsksForEverythingOfTheServicesOnTheAir) {
  makeManager();
  scan();
  EXPECT_EQ(calls(), std::string(kFilter) + " UUIDs=fee0+180d, hci0 StartDiscovery");
  manager->stopScan();
  EXPECT_EQ(calls(), "hci0 StopDiscovery");
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(calls(), std::string(kFilter) + ", hci0 StartDiscovery");
}

TEST_F(ScanTest, AdvertisementsAreReadFromTheDevicesProperties) {
  const Dictionary kMaker{{"343", Bytes{0x01, 0x02}}};
  const Dictionary kLargeMaker{{"65534", Bytes{}}};
  const Dictionary kNoMaker{{"x", Bytes{1}}, {"70000", 3}};
  const Array kOther{"0000180f-0000-1000-8000-00805f9b34fb"};
  const struct {
    const char* name;
    Dictionary device;
    const char* event;
  } cases[] = {{"all of it", {{"RSSI", -71}, {"ManufacturerData", kMaker}}, "-71 57010102"},
               {"a company number of two bytes", {{"ManufacturerData", kLargeMaker}}, "127 feff"},
               {"manufacturer data that is none", {{"ManufacturerData", kNoMaker}}, "127 -"},
               {"another service only", {{"UUIDs", kOther}}, nullptr},
               {"no service", {{"UUIDs", Array{}}}, nullptr},
               {"services that are none", {{"UUIDs", Array{3, "x"}}}, nullptr}};
  startScanning();
  int number = 10;
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    bluez.add(kHci0 + "/dev_C0_01_02_03_04_" + std::to_string(number++), kDeviceInterface,
              band(one.device));
    EXPECT_EQ(events(),
              one.event == nullptr ? "" : fmt::format("found MI Band 2 {} MI Band 2", one.event));
  }
}

TEST_F(ScanTest, AnAliasThatIsTheAddressIsNoName) {
  startScanning();
  Dictionary unnamed = band({{"Alias", "C0-01-02-03-04-05"}});
  unnamed.erase("Name");
  bluez.add(kBandPath, kDeviceInterface, unnamed);
  EXPECT_EQ(events(), "found (null) 127 - -");
  recorder->found.front()->setDelegate(recorder);
  EXPECT_EQ(changeBand({{"Name", "MI Band 2"}, {"RSSI", -50}}).events(),
            "name MI Band 2, found MI Band 2 -50 - MI Band 2");
  EXPECT_EQ(recorder->found.front(), recorder->found.back());
}

TEST_F(ScanTest, OnlyWhatAnAdvertisementChangesInOurOwnScanIsAnAdvertisement) {
  makeManager();
  forget();
  EXPECT_EQ(advertise().events(), "") << "another program's scan is not ours";
  scan();
  bluez.change(kBandPath, kDeviceInterface, {}, {"RSSI"});
  changeBand({{"Paired", true}});
  bluez.change(kHci0 + "/dev_00_00_00_00_00_00", kDeviceInterface, {{"RSSI", -40}});
  EXPECT_EQ(events(), "");
  EXPECT_EQ(advertise().events(), kFound);
  EXPECT_EQ(changeBand({{"ManufacturerData", Dictionary{}}}).events(), kFound);
  bluez.change(kBandPath, kDeviceInterface, {{"RSSI", -60}});
  manager->stopScan();
  settle();
  EXPECT_EQ(advertise().events(), "")
      << "nothing comes after the end, not even what was on its way";
}

TEST_F(ScanTest, ADeviceIsToldOnceUnlessDuplicatesAreAskedFor) {
  startScanning(false);
  advertise();
  EXPECT_EQ(advertise().events(), kFound);
  scan(false);
  EXPECT_EQ(advertise().events(), kFound) << "a new scan begins anew";
}

TEST_F(ScanTest, AKnownDeviceWhoseServicesAreForgottenIsStillFound) {
  startScanning();
  EXPECT_EQ(advertise().events(), kFound);
  changeBand({{"UUIDs", Array{}}});
  EXPECT_EQ(advertise().events(), kFound);
  bluez.add(kHci0 + "/dev_11_22_33_44_55_66", kDeviceInterface,
            {{"Address", "11:22:33:44:55:66"}, {"Name", "X"}, {"UUIDs", Array{}}, {"RSSI", -60}});
  EXPECT_EQ(events(), "") << "an unknown one has to offer what is asked for";

  // So is one of an earlier run.
  playAnew();
  bluez.place(kBandPath, kDeviceInterface, band({{"UUIDs", Array{}}}));
  makeManager({identifierOfDevice(band())});
  scan();
  forget();
  EXPECT_EQ(advertise().events(), kFound);
}

TEST_F(ScanTest, StoppingWhileStartingEndsInSilence) {
  bluez.byHand = {"SetDiscoveryFilter", "StartDiscovery"};
  makeManager();
  scan();
  manager->stopScan();
  reply("SetDiscoveryFilter");
  EXPECT_EQ(bluez.pending(), "");
  scan();
  reply("SetDiscoveryFilter");
  manager->stopScan();
  EXPECT_TRUE(reply("StartDiscovery").calls().ends_with("hci0 StopDiscovery"));
}

TEST_F(ScanTest, ADiscoveryThatEndsByItselfIsAskedForAgain) {
  startScanning();
  setDiscovering(false);
  EXPECT_EQ(runFor(999ms).calls(), "");
  bluez.byHand = {"StartDiscovery"};
  runFor(1ms);
  // It may still be on for bluetoothd, which then says so.
  fail("StartDiscovery", "InProgress");
  EXPECT_TRUE(setDiscovering(true).calls().ends_with("hci0 StartDiscovery"));
  EXPECT_EQ(loop.pendingTimers(), 0U);
  EXPECT_EQ(advertise().events(), kFound);
}

TEST_F(ScanTest, AScanThatCannotBeStartedIsTriedAgainEverLessOften) {
  bluez.byHand = {"StartDiscovery"};
  makeManager();
  scan();
  for (const auto pause : {1s, 2s, 4s, 8s, 8s}) {
    fail("StartDiscovery", "NotReady");
    runFor(pause - 1ms);
    EXPECT_EQ(bluez.pending(), "");
    runFor(1ms);
    EXPECT_EQ(bluez.pending(), "StartDiscovery");
  }
  manager->stopScan();
  fail("StartDiscovery", "NotReady");
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(ScanTest, AScanPausesForAConnectionAndGoesOnAfterIt) {
  startScanning();
  bluez.byHand = {"StopDiscovery", "Connect"};
  askToConnect();
  EXPECT_EQ(bluez.pending(), "StopDiscovery") << "first the end of the scan";
  reply("StopDiscovery");
  EXPECT_EQ(bluez.pending(), "Connect");
  EXPECT_EQ(advertise().events(), "");
  linkBecomes(true);
  EXPECT_EQ(reply("Connect").events(), "connected");
  EXPECT_TRUE(calls().ends_with("hci0 StartDiscovery"));
}

}  // namespace
}  // namespace wrixel2::platform::bluez
