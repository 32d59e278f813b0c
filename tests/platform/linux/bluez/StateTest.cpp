#include <functional>

#include "platform/linux/bluez/BluezDevice.h"
#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

const std::string kHci1 = "/org/bluez/hci1";

struct StartCase {
  const char* name;
  std::function<void(FakeBluez& bluez)> prepare;
  Events events;
  const char* line;
  std::optional<std::string> adapter = std::nullopt;
};

class StateTest : public BluezFixture {};

TEST_F(StateTest, TheFirstStateSaysWhatThereIsAndTheLogWhatIsMissing) {
  const std::vector<StartCase> cases = {
      {"everything", [](FakeBluez&) {}, {"state 5"}, "The Bluetooth adapter is hci0"},
      {"no bus", [](FakeBluez& fake) { fake.hasBus = false; }, {"state 2"}, "system bus"},
      {"no bluetoothd", [](FakeBluez& fake) { fake.isRunning = false; }, {"state 2"}, "org.bluez"},
      {"no answer yet", [](FakeBluez& fake) { fake.byHand = {"GetManagedObjects"}; }, {}, ""},
      {"no adapter", [](FakeBluez& fake) { fake.remove(kHci0); }, {"state 2"}, "an adapter"},
      {"a peripheral only",
       [](FakeBluez& fake) {
         fake.place(kHci0, kAdapterInterface, {{"Powered", true}, {"Roles", Array{"peripheral"}}});
       },
       {"state 2"},
       "an adapter"},
      {"no power",
       [](FakeBluez& fake) { fake.place(kHci0, kAdapterInterface, {{"Powered", false}}); },
       {"state 4"},
       "hci0 has power"},
      {"blocked",
       [](FakeBluez& fake) {
         fake.place(kHci0, kAdapterInterface, {{"Powered", false}, {"PowerState", "off-blocked"}});
       },
       {"state 4"},
       "rfkill unblock bluetooth"},
      {"another adapter wanted", [](FakeBluez&) {}, {"state 2"}, "hci7 is there", "hci7"},
      {"the second is the first with power",
       [](FakeBluez& fake) {
         fake.place(kHci0, kAdapterInterface, {{"Powered", false}});
         fake.place(kHci1, kAdapterInterface, {{"Powered", true}});
       },
       {"state 5"},
       "hci1"},
      {"the wanted one has no power",
       [](FakeBluez& fake) { fake.place(kHci1, kAdapterInterface, {{"Powered", false}}); },
       {"state 4"},
       "hci1 has power",
       "hci1"},
      {"the lowest number counts",
       [](FakeBluez& fake) {
         fake.remove(kHci0);
         fake.place("/org/bluez/hci10", kAdapterInterface, {{"Powered", true}});
         fake.place("/org/bluez/hci2", kAdapterInterface, {{"Powered", true}});
       },
       {"state 5"},
       "hci2"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    simulated::SimulatedRunLoop itsLoop{clock, zone};
    simulated::RecordingLog itsLog;
    FakeBluez its(itsLoop);
    its.place(kHci0, kAdapterInterface, {{"Powered", true}, {"Roles", Array{"central"}}});
    one.prepare(its);
    BluezRadio itsRadio([&] { return its.makeBus(); }, itsLoop, clock, itsLog, one.adapter);
    const auto itsManager =
        itsRadio.makeCentralManager(recorder, itsLoop.makeSerialQueue("test"), {});
    EXPECT_TRUE(recorder->events.empty()) << "nothing is told inside the constructor";
    itsLoop.runUntilIdle();
    EXPECT_EQ(std::exchange(recorder->events, {}), one.events);
    EXPECT_EQ(itsLog.lines().size(), one.events.size());
    const bool works = one.events == std::vector<std::string>{"state 5"};
    EXPECT_EQ(itsManager->problem().find(one.line) != std::string::npos, !works)
        << itsManager->problem();
    EXPECT_TRUE(one.events.empty() || itsLog.contains(LogLevel::info, one.line) ||
                itsLog.contains(LogLevel::warning, one.line));
    EXPECT_EQ(itsLoop.pendingTimers(), 0U) << "waiting costs nothing";
  }
}

TEST_F(StateTest, AUserWhoMayNotTalkToBluetoothdIsUnauthorized) {
  bluez.byHand = {"GetManagedObjects"};
  makeManager();
  settle();
  bluez.fail("GetManagedObjects", "org.freedesktop.DBus.Error.AccessDenied", "Rejected");
  EXPECT_EQ(events(), (Events{"state 3"}));
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(StateTest, ABluetoothdThatDoesNotAnswerIsAskedAgain) {
  bluez.byHand = {"GetManagedObjects"};
  makeManager();
  settle();
  bluez.fail("GetManagedObjects", "org.freedesktop.DBus.Error.NoReply");
  settle();
  bluez.byHand.clear();
  bluez.fail("GetManagedObjects", "org.freedesktop.DBus.Error.NoReply");
  EXPECT_EQ(events(), (Events{"state 5"}));
}

struct LossCase {
  const char* name;
  std::function<void(FakeBluez& bluez)> happens;
  std::string state;
  std::function<void(FakeBluez& bluez)> heals;
};

const std::vector<LossCase>& losses() {
  static const std::vector<LossCase> cases = {
      {"bluetoothd", [](FakeBluez& bluez) { bluez.stop(); }, "state 1",
       [](FakeBluez& bluez) { bluez.restart(); }},
      {"the bus", [](FakeBluez& bluez) { bluez.loseBus(); }, "state 2",
       [](FakeBluez& bluez) { bluez.findBus(); }},
      {"power",
       [](FakeBluez& bluez) { bluez.change(kHci0, kAdapterInterface, {{"Powered", false}}); },
       "state 4",
       [](FakeBluez& bluez) { bluez.change(kHci0, kAdapterInterface, {{"Powered", true}}); }},
      {"the adapter",
       [](FakeBluez& bluez) {
         bluez.remove(kBandPath);
         bluez.remove(kHci0);
       },
       "state 2",
       [](FakeBluez& bluez) { bluez.add(kHci0, kAdapterInterface, {{"Powered", true}}); }}};
  return cases;
}

TEST_F(StateTest, LosingTheRadioAnswersWhatIsPendingThenEndsTheLinkThenTellsTheState) {
  for (const auto& loss : losses()) {
    SCOPED_TRACE(loss.name);
    bluez.place(kHci0, kAdapterInterface, {{"Powered", true}});
    bluez.place(kBandPath, kDeviceInterface, band());
    placeGattObjects();
    discover();
    bluez.byHand = {"ReadValue"};
    peripheral->readValueForCharacteristic(characteristic("2a2b"));
    peripheral->setNotifyValue(true, characteristic("ff07"));
    settle();
    loss.happens(bluez);
    EXPECT_EQ(events(),
              (Events{"value 2a2b error 3", "notifying ff07 no 3", "disconnected -", loss.state}));
    bluez.byHand.clear();
    bluez.place(kBandPath, kDeviceInterface, band());
    loss.heals(bluez);
    EXPECT_EQ(events(), (Events{"state 5"}));
    EXPECT_EQ(loop.pendingTimers(), 0U);
    bluez.takeCalls();
  }
}

TEST_F(StateTest, LinksThatEndJustBeforePowerIsLostEndWithoutAnError) {
  connect();
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", false}});
  runFor(std::chrono::milliseconds(499));
  EXPECT_EQ(events(), (Events{}));
  bluez.change(kHci0, kAdapterInterface, {{"Powered", false}});
  EXPECT_EQ(events(), (Events{"disconnected -", "state 4"}));
}

TEST_F(StateTest, WithoutTheRadioAPendingConnectionAndAScanEnd) {
  bluez.byHand = {"Connect"};
  makeManager();
  settle();
  peripheral = bandPeripheral();
  manager->connectPeripheral(peripheral, {});
  settle();
  bluez.change(kHci0, kAdapterInterface, {{"Powered", false}});
  EXPECT_EQ(events(), (Events{"state 5", "disconnected -", "state 4"}));
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), (Events{"failed 10"}));
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  // The answer to the call of before is nobody's.
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{}));
  bluez.takeCalls();
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  bluez.change(kHci0, kAdapterInterface, {{"Powered", true}});
  EXPECT_EQ(events(), (Events{"state 5"}));
  EXPECT_EQ(calls(), (Calls{}));
}

TEST_F(StateTest, AnotherAdapterIsUsedOnlyOnceTheOneInUseIsOfNoUse) {
  makeManager();
  bluez.add(kHci1, kAdapterInterface, {{"Powered", true}});
  EXPECT_EQ(events(), (Events{"state 5"}));
  bluez.change(kHci0, kAdapterInterface, {{"Powered", false}});
  EXPECT_EQ(events(), (Events{"state 4", "state 5"}));
  bluez.change(kHci0, kAdapterInterface, {{"Powered", true}});
  EXPECT_EQ(events(), (Events{}));
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(calls().back(), "hci1 StartDiscovery");
}

TEST_F(StateTest, AdvertisementsOfADeviceOnAnotherAdapterAreOfTheSamePeripheral) {
  makeManager();
  settle();
  peripheral = bandPeripheral();
  const std::string other = kHci1 + "/dev_C0_01_02_03_04_05";
  bluez.place(other, kDeviceInterface, band());
  bluez.add(kHci1, kAdapterInterface, {{"Powered", true}});
  bluez.announce(other);
  bluez.remove(kHci0);
  settle();
  EXPECT_EQ(bandPeripheral(), peripheral);
  bluez.takeCalls();
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events().back(), "connected");
}

// --- Links left over from an earlier run ---

class LeftoverTest : public BluezFixture {
 protected:
  void startWithLeftover() {
    bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
    bluez.byHand = {"Disconnect"};
    makeManager({identifierOfDevice(band())});
    EXPECT_EQ(calls(), (Calls{"dev_C0_01_02_03_04_05 Disconnect"}));
    EXPECT_EQ(events(), (Events{}));
  }
};

TEST_F(LeftoverTest, AreEndedBeforePoweredOnIsTold) {
  startWithLeftover();
  bluez.reply("Disconnect");
  EXPECT_EQ(events(), (Events{})) << "the answer alone does not end it";
  bluez.change(kBandPath, kDeviceInterface, {{"Connected", false}});
  EXPECT_EQ(events(), (Events{"state 5"}));
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LeftoverTest, ThatAreGoneOrDoNotEndHoldNothingUp) {
  startWithLeftover();
  runFor(std::chrono::milliseconds(9'999));
  EXPECT_EQ(events(), (Events{}));
  runFor(std::chrono::milliseconds(1));
  EXPECT_EQ(events(), (Events{"state 5"}));
  EXPECT_TRUE(log.contains(LogLevel::warning, "does not end"));
  manager.reset();
  bluez.takeCalls();

  startWithLeftover();
  bluez.fail("Disconnect", "org.bluez.Error.NotConnected");
  EXPECT_EQ(events(), (Events{"state 5"}));
  manager.reset();
  bluez.takeCalls();

  startWithLeftover();
  bluez.remove(kBandPath);
  EXPECT_EQ(events(), (Events{"state 5"}));
}

TEST_F(LeftoverTest, AreForgottenWhenPowerGoesMeanwhile) {
  startWithLeftover();
  bluez.change(kHci0, kAdapterInterface, {{"Powered", false}});
  EXPECT_EQ(events(), (Events{"state 4"}));
  runFor(std::chrono::seconds(20));
  EXPECT_EQ(events(), (Events{}));
}

TEST_F(LeftoverTest, OfThisRunAreEndedAsWellAfterBluetoothdCameBack) {
  connect();
  bluez.stop();
  settle();
  bluez.restart();
  EXPECT_EQ(events(), (Events{"disconnected -", "state 1", "state 5"}));
  EXPECT_EQ(calls(), (Calls{"dev_C0_01_02_03_04_05 Disconnect"}));
}

TEST_F(LeftoverTest, OfOtherProgramsAreLeftAloneAndCanBeRetrieved) {
  bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
  makeManager();
  EXPECT_EQ(calls(), (Calls{}));
  EXPECT_EQ(events(), (Events{"state 5"}));
  const auto found = manager->retrieveConnectedPeripheralsWithServices({UUID::withString("fee0")});
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found.front()->name(), "MI Band 2");
  EXPECT_EQ(found.front()->state(), PeripheralState::disconnected) << "it is not our link";
  EXPECT_TRUE(
      manager->retrieveConnectedPeripheralsWithServices({UUID::withString("180d")}).empty());
}

}  // namespace
}  // namespace wrixel2::platform::bluez
