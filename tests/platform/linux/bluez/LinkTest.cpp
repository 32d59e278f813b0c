#include "platform/linux/bluez/BluezDevice.h"
#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

const std::string kConnect = "dev_C0_01_02_03_04_05 Connect";
const std::string kDisconnect = "dev_C0_01_02_03_04_05 Disconnect";

class LinkTest : public BluezFixture {
 protected:
  /// A connection is asked for, and bluetoothd has not answered yet.
  void beginToConnect() {
    bluez.byHand = {"Connect", "Disconnect"};
    makeManager();
    settle();
    peripheral = bandPeripheral();
    manager->connectPeripheral(peripheral, {});
    EXPECT_EQ(calls(), (Calls{kConnect}));
    EXPECT_EQ(peripheral->state(), PeripheralState::connecting);
    recorder->events.clear();
  }
  void linkBecomes(bool isConnected) {
    bluez.change(kBandPath, kDeviceInterface, {{"Connected", isConnected}});
  }
  void cancel() { manager->cancelPeripheralConnection(peripheral); }
};

TEST_F(LinkTest, IsUpWithTheAnswerToOurOwnRequest) {
  beginToConnect();
  linkBecomes(true);
  EXPECT_EQ(events(), (Events{})) << "it may be anybody's";
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{"connected"}));
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), (Events{"connected"})) << "asked for again, it is told again";
  EXPECT_EQ(calls(), (Calls{}));
}

TEST_F(LinkTest, ConnectingToSomebodyElsesLinkSucceedsAtOnce) {
  bluez.byHand = {"Connect"};
  bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
  makeManager();
  settle();
  peripheral = bandPeripheral();
  manager->connectPeripheral(peripheral, {});
  settle();
  bluez.fail("Connect", "org.bluez.Error.AlreadyConnected");
  EXPECT_EQ(events(), (Events{"state 5", "connected"}));
}

TEST_F(LinkTest, IsTriedForAgainUntilItIsCancelled) {
  beginToConnect();
  for (const auto pause : {1s, 2s, 4s, 8s, 10s, 10s}) {
    bluez.fail("Connect", "org.bluez.Error.Failed", "le-connection-abort-by-local");
    runFor(pause - 1ms);
    EXPECT_EQ(calls(), (Calls{}));
    runFor(1ms);
    EXPECT_EQ(calls(), (Calls{kConnect}));
  }
  bluez.fail("Connect", "org.bluez.Error.InProgress");
  settle();
  cancel();
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnecting);
  EXPECT_EQ(events(), (Events{"disconnected -"}));
  EXPECT_EQ(calls(), (Calls{})) << "there was nothing to end";
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LinkTest, OfAnotherProgramEndsThePauseBetweenAttempts) {
  beginToConnect();
  bluez.fail("Connect", "org.bluez.Error.InProgress");
  settle();
  linkBecomes(true);
  EXPECT_EQ(calls(), (Calls{kConnect}));
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{"connected"}));
}

TEST_F(LinkTest, IsLookedForWhenItsAnswerComesWithoutItsAnnouncement) {
  beginToConnect();
  bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
  bluez.reply("Connect");
  settle();
  EXPECT_EQ(events(), (Events{"connected"}));
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LinkTest, IsUpSomeTimeAfterItsAnnouncementAlsoWithoutAnAnswer) {
  beginToConnect();
  linkBecomes(true);
  runFor(5s - 1ms);
  EXPECT_EQ(events(), (Events{}));
  runFor(1ms);
  settle();
  EXPECT_EQ(events(), (Events{"connected"}));
  bluez.fail("Connect", "org.bluez.Error.Failed", "too late");
  settle();
  EXPECT_EQ(events(), (Events{}));
  EXPECT_TRUE(peripheral->state() == PeripheralState::connected);
}

TEST_F(LinkTest, ThatIsGoneWhenItsAnswerComesIsTriedForAgain) {
  beginToConnect();
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{}));
  runFor(1s);
  EXPECT_EQ(calls(), (Calls{kConnect}));
}

TEST_F(LinkTest, IsNotTriedForAgainWhereThatCannotHelp) {
  beginToConnect();
  bluez.fail("Connect", "org.bluez.Error.NotAvailable", "br-connection-profile-unavailable");
  EXPECT_EQ(events(), (Events{"failed 0"}));
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LinkTest, ToADeviceThatBluetoothdForgotWaitsUntilItIsHeardAgain) {
  beginToConnect();
  bluez.remove(kBandPath);
  settle();
  EXPECT_EQ(calls(),
            (Calls{"hci0 SetDiscoveryFilter Transport=le DuplicateData=1", "hci0 StartDiscovery"}));
  bluez.add(kBandPath, kDeviceInterface, band());
  EXPECT_EQ(calls(), (Calls{"hci0 StopDiscovery", kConnect}));
  EXPECT_EQ(events(), (Events{})) << "the search is not a scan of the program's";
  // The answer to the request of before counts no more.
  bluez.fail("Connect", "org.freedesktop.DBus.Error.UnknownObject");
  settle();
  linkBecomes(true);
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{"connected"}));
}

TEST_F(LinkTest, WaitsToHearADeviceThatBluetoothdHasForgottenUnannounced) {
  beginToConnect();
  bluez.fail("Connect", "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(calls().back(), "hci0 StartDiscovery");
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", true}});
  runFor(60s);
  EXPECT_EQ(calls(), (Calls{}));
  cancel();
  EXPECT_EQ(calls(), (Calls{"hci0 StopDiscovery"}));
  EXPECT_EQ(events(), (Events{"disconnected -"}));
}

TEST_F(LinkTest, CancelledWhileBluetoothdConnectsEndsWithoutAnError) {
  struct Case {
    const char* name;
    std::function<void()> answers;
  };
  const std::vector<Case> cases = {
      {"refused, then done",
       [this] {
         bluez.fail("Connect", "org.bluez.Error.Failed", "br-connection-canceled");
         EXPECT_EQ(events(), (Events{}));
         bluez.reply("Disconnect");
       }},
      {"done, then refused",
       [this] {
         bluez.reply("Disconnect");
         EXPECT_EQ(events(), (Events{}));
         bluez.fail("Connect", "org.bluez.Error.Failed", "br-connection-canceled");
       }},
      {"it came up first",
       [this] {
         linkBecomes(true);
         bluez.reply("Connect");
         bluez.reply("Disconnect");
         EXPECT_EQ(events(), (Events{}));
         linkBecomes(false);
       }},
      {"the device went", [this] { bluez.remove(kBandPath); }}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    bluez.place(kBandPath, kDeviceInterface, band());
    beginToConnect();
    cancel();
    EXPECT_EQ(calls(), (Calls{kDisconnect}));
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnecting);
    one.answers();
    EXPECT_EQ(events(), (Events{"disconnected -"}));
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    EXPECT_EQ(loop.pendingTimers(), 0U);
    manager.reset();
    bluez.takeCalls();
  }
}

TEST_F(LinkTest, AConnectionCancelledBeforeItWasToldIsNotTold) {
  beginToConnect();
  linkBecomes(true);
  bluez.reply("Connect");
  // The answer's turn is over, the delivery's is not.
  loop.post([this] { cancel(); });
  EXPECT_EQ(events(), (Events{}));
  linkBecomes(false);
  EXPECT_EQ(events(), (Events{"disconnected -"}));
}

TEST_F(LinkTest, IsNotMadeAnewBeforeTheOldOneIsGone) {
  connect();
  bluez.byHand = {"Connect", "Disconnect"};
  cancel();
  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(calls(), (Calls{kDisconnect}));
  bluez.reply("Disconnect");
  EXPECT_EQ(calls(), (Calls{})) << "Connected is still true";
  linkBecomes(false);
  EXPECT_EQ(events(), (Events{"disconnected -"}));
  EXPECT_EQ(peripheral->state(), PeripheralState::connecting);
  EXPECT_EQ(calls(), (Calls{kConnect}));
}

TEST_F(LinkTest, ThatDoesNotEndIsToldToHaveEndedAndNotUsedAgainUntilItHas) {
  connect();
  bluez.byHand = {"Connect", "Disconnect"};
  cancel();
  runFor(9'999ms);
  EXPECT_EQ(events(), (Events{}));
  runFor(1ms);
  EXPECT_EQ(events(), (Events{"disconnected -"}));
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  EXPECT_EQ(loop.pendingTimers(), 0U);
  bluez.takeCalls();

  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(calls(), (Calls{kDisconnect})) << "asked for the end once more";
  linkBecomes(false);
  EXPECT_EQ(calls(), (Calls{kConnect}));
  EXPECT_EQ(events(), (Events{}));
  linkBecomes(true);
  bluez.reply("Connect");
  EXPECT_EQ(events(), (Events{"connected"}));
}

TEST_F(LinkTest, TheWayItEndsMakesTheCode) {
  struct Case {
    const char* name;
    TimeInterval age;
    const char* reason;
    const char* event;
    TimeInterval until;
  };
  // Without a reason of the other end's or of time, an end in the first 30 s is the band's refusal;
  // it is told 0.5 s later, when it is clear that it is not the adapter's power that goes.
  const std::vector<Case> cases = {
      {"refused", 29'999ms, "", "disconnected 7", 500ms},
      {"lost", 30s, "", "disconnected 6", 500ms},
      {"another program's doing", 1s, "org.bluez.Reason.Local", "disconnected 7", 500ms},
      {"in vain", 1s, "org.bluez.Reason.Timeout", "disconnected 6", 0s},
      {"sent away", 1h, "org.bluez.Reason.Remote", "disconnected 7", 0s}};
  for (const auto& one : cases) {
    for (const bool isRemoved : {false, true}) {
      SCOPED_TRACE(std::string(one.name) + (isRemoved ? ", removed" : ""));
      bluez.place(kBandPath, kDeviceInterface, band());
      connect();
      runFor(one.age);
      if (*one.reason != '\0') {
        bluez.disconnected(kBandPath, one.reason);
      }
      if (isRemoved) {
        bluez.remove(kBandPath);
      } else {
        linkBecomes(false);
      }
      settle();
      if (one.until > 0s) {
        runFor(one.until - 1ms);
        EXPECT_EQ(events(), (Events{}));
        runFor(1ms);
      }
      EXPECT_EQ(events(), (Events{one.event}));
      manager.reset();
      bluez.takeCalls();
    }
  }
}

TEST_F(LinkTest, ThatIsLostMayBeCancelledOrAskedForAgainBeforeItIsTold) {
  connect();
  linkBecomes(false);
  settle();
  EXPECT_EQ(peripheral->state(), PeripheralState::connected);
  cancel();
  EXPECT_EQ(events(), (Events{"disconnected -"}));

  manager->connectPeripheral(peripheral, {});
  EXPECT_EQ(events(), (Events{"connected"}));
  linkBecomes(false);
  settle();
  manager->connectPeripheral(peripheral, {});
  runFor(500ms);
  EXPECT_EQ(events(), (Events{"disconnected 7", "connected"}));
}

TEST_F(LinkTest, OurOwnEndIsCleanWhateverTheReason) {
  connect();
  bluez.byHand = {"Disconnect"};
  cancel();
  bluez.disconnected(kBandPath, "org.bluez.Reason.Local");
  linkBecomes(false);
  EXPECT_EQ(events(), (Events{"disconnected -"}));
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LinkTest, ReconnectingFromInsideTheDisconnectionWorks) {
  connect();
  recorder->react = [this](const std::string& event) {
    if (event == "disconnected 7") {
      manager->connectPeripheral(peripheral, {});
    }
  };
  bluez.disconnected(kBandPath, "org.bluez.Reason.Remote");
  linkBecomes(false);
  EXPECT_EQ(events(), (Events{"disconnected 7", "connected"}));
}

TEST_F(LinkTest, AllAreAskedToEndWithoutWaitingWhenTheProcessGoes) {
  connect();
  bluez.byHand = {"Disconnect"};
  radio->endLinks();
  EXPECT_EQ(bluez.takeCalls(), (Calls{kDisconnect}));
  EXPECT_EQ(bluez.pending(), (Calls{})) << "nobody waits for an answer";
  cancel();
  settle();
  bluez.takeCalls();
  radio->endLinks();
  EXPECT_EQ(calls(), (Calls{})) << "it was asked for already";
}

TEST_F(LinkTest, TheManagerMayGoInAnyCallback) {
  for (const std::string last : {"connected", "disconnected -", "state 4"}) {
    SCOPED_TRACE(last);
    connect();
    if (last == "connected") {
      manager->connectPeripheral(peripheral, {});
    } else {
      bluez.change(kHci0, kAdapterInterface, {{"Powered", false}});
    }
    recorder->react = [this, &last](const std::string& event) {
      if (event == last) {
        manager.reset();
      }
    };
    EXPECT_EQ(events().back(), last);
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    peripheral->discoverServices(std::nullopt);
    peripheral->readRSSI();
    EXPECT_EQ(events(), (Events{}));
    EXPECT_EQ(loop.pendingTimers(), 0U);
    recorder->react = nullptr;
    bluez.takeCalls();
    bluez.place(kHci0, kAdapterInterface, {{"Powered", true}});
    bluez.place(kBandPath, kDeviceInterface, band());
  }
}

}  // namespace
}  // namespace wrixel2::platform::bluez
