#include <functional>

#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

const std::string kHci1 = "/org/bluez/hci1";

class StateTest : public BluezFixture {};

TEST_F(StateTest, TheFirstStateSaysWhatThereIsAndTheLogWhatIsMissing) {
  const Dictionary kOn{{"Powered", true}, {"Roles", Array{"central"}}};
  const Dictionary kOff{{"Powered", false}};
  const Dictionary kBlocked{{"Powered", false}, {"PowerState", "off-blocked"}};
  const Dictionary kPeripheral{{"Powered", true}, {"Roles", Array{"peripheral"}}};
  using Adapters = std::map<std::string, Dictionary>;
  const struct {
    const char* name;
    Adapters adapters;
    std::string state;
    const char* line;
    std::optional<std::string> wanted = std::nullopt;
    bool hasBus = true;
    bool isRunning = true;
  } cases[] = {
      {"everything", {{kHci0, kOn}}, "state 5", "The Bluetooth adapter is hci0"},
      {"no bus", {{kHci0, kOn}}, "state 2", "system bus", {}, false},
      {"no bluetoothd", {{kHci0, kOn}}, "state 2", "org.bluez", {}, true, false},
      {"no adapter", {}, "state 2", "an adapter"},
      {"a peripheral only", {{kHci0, kPeripheral}}, "state 2", "an adapter"},
      {"no power", {{kHci0, kOff}}, "state 4", "hci0 has power"},
      {"blocked", {{kHci0, kBlocked}}, "state 4", "rfkill unblock bluetooth"},
      {"another adapter wanted", {{kHci0, kOn}}, "state 2", "hci7 is there", "hci7"},
      {"the second has power", {{kHci0, kOff}, {kHci1, kOn}}, "state 5", "hci1"},
      {"the wanted one has none", {{kHci0, kOn}, {kHci1, kOff}}, "state 4", "hci1 has", "hci1"},
      {"the lowest number counts", {{kHci1 + "0", kOn}, {kHci1, kOn}}, "state 5", "hci1"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    playAnew();
    log.clear();
    bluez.clear();
    for (const auto& [path, adapter] : one.adapters) {
      bluez.place(path, kAdapterInterface, adapter);
    }
    bluez.hasBus = one.hasBus;
    bluez.isRunning = one.isRunning;
    makeManager({}, one.wanted);
    EXPECT_EQ(events(), one.state);
    EXPECT_EQ(log.lines().size(), 1U);
    const bool works = one.state == "state 5";
    EXPECT_TRUE(log.contains(works ? LogLevel::info : LogLevel::warning, one.line));
    EXPECT_EQ(manager->problem().find(one.line) != std::string::npos, !works) << manager->problem();
    EXPECT_EQ(loop.pendingTimers(), 0U) << "waiting costs nothing";
  }
}

TEST_F(StateTest, ABluetoothdThatDoesNotAnswerIsAskedAgain) {
  bluez.byHand = {"GetManagedObjects"};
  makeManager();
  bluez.remove(kHci0);
  bluez.add(kHci0, kAdapterInterface, {{"Powered", true}});
  EXPECT_EQ(events(), "") << "what is announced meanwhile does not tell the state";
  EXPECT_TRUE(log.lines().empty());
  fail("GetManagedObjects", "org.freedesktop.DBus.Error.NoReply");
  bluez.byHand.clear();
  EXPECT_EQ(fail("GetManagedObjects", "org.freedesktop.DBus.Error.NoReply").events(), "state 5");

  // But not where we may not talk to it.
  playAnew();
  bluez.byHand = {"GetManagedObjects"};
  makeManager();
  EXPECT_EQ(
      fail("GetManagedObjects", "org.freedesktop.DBus.Error.AccessDenied", "Rejected").events(),
      "state 3");
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(StateTest, LosingTheRadioAnswersWhatIsPendingThenEndsTheLinkThenTellsTheState) {
  const struct {
    const char* name;
    std::function<void()> happens;
    const char* state;
    std::function<void()> heals;
  } cases[] = {{"bluetoothd", [this] { bluez.stop(); }, "state 1", [this] { bluez.restart(); }},
               {"the bus", [this] { bluez.loseBus(); }, "state 2", [this] { bluez.findBus(); }},
               {"power", [this] { setPower(false); }, "state 4", [this] { setPower(true); }},
               {"the adapter", [this] { bluez.remove(kBandPath), bluez.remove(kHci0); }, "state 2",
                [this] { bluez.add(kHci0, kAdapterInterface, {{"Powered", true}}); }}};
  for (const auto& loss : cases) {
    SCOPED_TRACE(loss.name);
    playAnew();
    discover();
    bluez.byHand = {"ReadValue"};
    read("2a2b");
    setNotify("ff07", true);
    settle();
    loss.happens();
    EXPECT_EQ(events(), std::string("value 2a2b error 3, notifying ff07 no 3, disconnected -, ") +
                            loss.state);
    bluez.byHand.clear();
    bluez.place(kBandPath, kDeviceInterface, band());
    loss.heals();
    EXPECT_EQ(events(), "state 5");
    EXPECT_EQ(loop.pendingTimers(), 0U);
  }
}

TEST_F(StateTest, LinksThatEndJustBeforePowerIsLostEndWithoutAnError) {
  connect();
  linkBecomes(false);
  EXPECT_EQ(runFor(499ms).events(), "");
  EXPECT_EQ(setPower(false).events(), "disconnected -, state 4");
}

TEST_F(StateTest, WithoutTheRadioAPendingConnectionAndAScanEnd) {
  bluez.byHand = {"Connect"};
  makeManager();
  askToConnect();
  EXPECT_EQ(setPower(false).events(), "state 5, disconnected -, state 4");
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), "failed 10");
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  EXPECT_EQ(reply("Connect").events(), "") << "the answer to the call of before is nobody's";
  forget();
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_EQ(setPower(true).events(), "state 5");
  EXPECT_EQ(calls(), "");
}

TEST_F(StateTest, AnotherAdapterIsUsedOnlyOnceTheOneInUseIsOfNoUse) {
  makeManager();
  peripheral = bandPeripheral();
  const std::string other = kHci1 + "/dev_C0_01_02_03_04_05";
  bluez.place(other, kDeviceInterface, band());
  bluez.add(kHci1, kAdapterInterface, {{"Powered", true}});
  bluez.announce(other);
  EXPECT_EQ(events(), "state 5");
  EXPECT_EQ(setPower(false).events(), "state 4, state 5");
  EXPECT_EQ(setPower(true).events(), "");
  manager->scanForPeripheralsWithServices(std::nullopt, {});
  EXPECT_TRUE(calls().ends_with("hci1 StartDiscovery"));
  // A device on it is the same peripheral.
  bluez.remove(kHci0);
  settle();
  EXPECT_EQ(bandPeripheral(), peripheral);
  askToConnect();
  EXPECT_EQ(events(), "connected");
}

// --- Links that this run has not made ---

TEST_F(StateTest, LinksOfOthersAndOfEarlierRunsAreLeftAloneAndCanBeRetrieved) {
  const UUID identifier = identifierOfDevice(band());
  bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
  const auto connected = [this](const char* service) {
    return manager->retrieveConnectedPeripheralsWithServices({UUID::withString(service)});
  };
  for (const bool isSeenBefore : {false, true}) {
    makeManager(isSeenBefore ? std::vector{identifier} : std::vector<UUID>{});
    EXPECT_EQ(events(), "state 5");
    setPower(false);
    setPower(true);
    bluez.stop();
    settle();
    bluez.restart();
    EXPECT_EQ(events(), "state 4, state 5, state 1, state 5");
    EXPECT_EQ(calls(), "") << "it may be another program's";
    ASSERT_EQ(connected("fee0").size(), 1U);
    EXPECT_EQ(connected("fee0").front()->name(), "MI Band 2");
    EXPECT_EQ(connected("fee0").front()->state(), PeripheralState::disconnected)
        << "it is not our link";
    EXPECT_TRUE(connected("180d").empty());
  }
  // bluetoothd may have forgotten what a device that we know offers.
  bluez.change(kBandPath, kDeviceInterface, {{"UUIDs", Array{}}});
  settle();
  EXPECT_EQ(connected("fee0").size(), 1U);
}

TEST_F(StateTest, ALinkOfAnEarlierRunIsEndedWhereThatIsWanted) {
  const struct {
    const char* name;
    std::function<void()> then;
    const char* events;
    std::string calls;
  } cases[] = {
      {"it ends", [this] { reply("Disconnect"), linkBecomes(false); }, "", ""},
      {"it does not, and is asked for again",
       [this] { runFor(20s), manager->endLeftoverLink(peripheral), runFor(10s); }, "", kDisconnect},
      {"the device goes", [this] { bluez.remove(kBandPath); }, "", ""},
      {"power goes", [this] { setPower(false); }, "state 4", ""},
      {"it is wanted once more, and made anew when the old one has gone",
       [this] {
         manager->connectPeripheral(peripheral, {});
         EXPECT_EQ(calls(), "");
         reply("Disconnect"), linkBecomes(false);
       },
       "connected", kConnect}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    playAnew();
    bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
    bluez.byHand = {"Disconnect"};
    makeManager();
    peripheral = bandPeripheral();
    manager->cancelPeripheralConnection(peripheral);
    EXPECT_EQ(calls(), "") << "nothing of ours to cancel";
    manager->endLeftoverLink(peripheral);
    manager->endLeftoverLink(peripheral);
    EXPECT_EQ(calls(), kDisconnect);
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    EXPECT_EQ(events(), "state 5");
    one.then();
    EXPECT_EQ(events(), one.events);
    EXPECT_EQ(calls(), one.calls);
    EXPECT_EQ(loop.pendingTimers(), 0U);
  }
  manager->endLeftoverLink(peripheral);
  EXPECT_EQ(calls(), "") << "one in use stays";
}

}  // namespace
}  // namespace wrixel2::platform::bluez
