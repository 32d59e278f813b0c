#include <functional>

#include "tests/platform/linux/bluez/BluezFixture.h"

namespace wrixel2::platform::bluez {
namespace {

using namespace std::chrono_literals;

class LinkTest : public BluezFixture {
 protected:
  /// A connection is asked for, and bluetoothd has not answered yet.
  void beginToConnect() {
    bluez.byHand = {"Connect", "Disconnect"};
    makeManager();
    askToConnect();
    EXPECT_EQ(calls(), kConnect);
    EXPECT_EQ(peripheral->state(), PeripheralState::connecting);
    forget();
  }
  BluezFixture& connectAgain() {
    manager->connectPeripheral(peripheral, {});
    return *this;
  }
  BluezFixture& cancel() {
    manager->cancelPeripheralConnection(peripheral);
    return *this;
  }
  void expectRest() {
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    EXPECT_EQ(loop.pendingTimers(), 0U);
  }
};

// --- Coming up ---

TEST_F(LinkTest, IsUpWithTheAnswerToOurOwnRequest) {
  beginToConnect();
  EXPECT_EQ(linkBecomes(true).events(), "") << "it may be anybody's";
  EXPECT_EQ(reply("Connect").events(), "connected");
  EXPECT_EQ(connectAgain().events(), "connected") << "asked for again, it is told again";
  EXPECT_EQ(calls(), "");
}

TEST_F(LinkTest, ThatIsThereAlreadyIsConnectedToAtOnce) {
  const std::pair<const char*, std::function<void()>> cases[] = {
      {"by another program, before", [this] { fail("Connect", "AlreadyConnected"); }},
      {"announced to nobody", [this] { reply("Connect"); }}};
  for (const auto& [name, answer] : cases) {
    SCOPED_TRACE(name);
    playAnew();
    beginToConnect();
    bluez.place(kBandPath, kDeviceInterface, band({{"Connected", true}}));
    answer();
    EXPECT_EQ(events(), "connected");
    EXPECT_EQ(loop.pendingTimers(), 0U);
  }
}

TEST_F(LinkTest, IsTriedForAgainUntilItIsCancelled) {
  beginToConnect();
  for (const auto pause : {1s, 2s, 4s, 8s, 10s, 10s}) {
    fail("Connect", "Failed", "le-connection-abort-by-local");
    EXPECT_EQ(runFor(pause - 1ms).calls(), "");
    EXPECT_EQ(runFor(1ms).calls(), kConnect);
  }
  fail("Connect", "InProgress");
  cancel();
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnecting);
  EXPECT_EQ(events(), "disconnected -");
  EXPECT_EQ(calls(), "") << "there was nothing to end";
  expectRest();
}

TEST_F(LinkTest, OfAnotherProgramEndsThePauseBetweenAttempts) {
  beginToConnect();
  fail("Connect", "InProgress");
  EXPECT_EQ(linkBecomes(true).calls(), kConnect);
  EXPECT_EQ(reply("Connect").events(), "connected");
}

TEST_F(LinkTest, IsUpSomeTimeAfterItsAnnouncementAlsoWithoutAnAnswer) {
  beginToConnect();
  linkBecomes(true);
  EXPECT_EQ(runFor(5s - 1ms).events(), "");
  EXPECT_EQ(runFor(1ms).events(), "connected");
  EXPECT_EQ(fail("Connect", "Failed", "too late").events(), "");
  EXPECT_EQ(peripheral->state(), PeripheralState::connected);
}

TEST_F(LinkTest, ThatIsGoneWhenItsAnswerComesIsTriedForAgainUnlessThatCannotHelp) {
  beginToConnect();
  EXPECT_EQ(reply("Connect").events(), "");
  EXPECT_EQ(runFor(1s).calls(), kConnect);
  EXPECT_EQ(fail("Connect", "NotAvailable", "br-connection-profile-unavailable").events(),
            "failed 0");
  expectRest();
}

TEST_F(LinkTest, ToADeviceThatBluetoothdForgotWaitsUntilItIsHeardAgain) {
  beginToConnect();
  bluez.remove(kBandPath);
  EXPECT_EQ(calls(), "hci0 SetDiscoveryFilter Transport=le DuplicateData=1, hci0 StartDiscovery");
  bluez.add(kBandPath, kDeviceInterface, band());
  EXPECT_EQ(calls(), "hci0 StopDiscovery, " + kConnect);
  EXPECT_EQ(events(), "") << "the search is not a scan of the program's";
  // The answer to the request of before counts no more.
  fail("Connect", "org.freedesktop.DBus.Error.UnknownObject");
  linkBecomes(true);
  EXPECT_EQ(reply("Connect").events(), "connected");
}

TEST_F(LinkTest, WaitsToHearADeviceThatBluetoothdHasForgottenUnannounced) {
  beginToConnect();
  EXPECT_TRUE(fail("Connect", "org.freedesktop.DBus.Error.UnknownMethod")
                  .calls()
                  .ends_with("hci0 StartDiscovery"));
  bluez.change(kHci0, kAdapterInterface, {{"Discovering", true}});
  EXPECT_EQ(runFor(60s).calls(), "");
  EXPECT_EQ(cancel().calls(), "hci0 StopDiscovery");
  EXPECT_EQ(events(), "disconnected -");
}

// --- Cancelled ---

TEST_F(LinkTest, CancelledWhileBluetoothdConnectsEndsWithoutAnError) {
  const auto refuse = [this] { fail("Connect", "Failed", "br-connection-canceled"); };
  const auto end = [this] { reply("Disconnect"); };
  const auto comeUp = [this] {
    linkBecomes(true);
    reply("Connect");
    reply("Disconnect");
  };
  const struct {
    const char* name;
    std::function<void()> first;
    std::function<void()> last;
  } cases[] = {{"refused, then done", refuse, end},
               {"done, then refused", end, refuse},
               {"it came up first", comeUp, [this] { linkBecomes(false); }},
               {"the device went", [] {}, [this] { bluez.remove(kBandPath); }}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    playAnew();
    beginToConnect();
    EXPECT_EQ(cancel().calls(), kDisconnect);
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnecting);
    one.first();
    EXPECT_EQ(events(), "");
    one.last();
    EXPECT_EQ(events(), "disconnected -");
    expectRest();
  }
}

TEST_F(LinkTest, AConnectionCancelledBeforeItWasToldIsNotTold) {
  beginToConnect();
  linkBecomes(true);
  bluez.reply("Connect");
  // The answer's turn is over, the delivery's is not.
  loop.post([this] { cancel(); });
  EXPECT_EQ(events(), "");
  EXPECT_EQ(linkBecomes(false).events(), "disconnected -");
}

TEST_F(LinkTest, IsNotMadeAnewBeforeTheOldOneIsGone) {
  connect();
  bluez.byHand = {"Connect", "Disconnect"};
  cancel();
  EXPECT_EQ(connectAgain().calls(), kDisconnect);
  EXPECT_EQ(reply("Disconnect").calls(), "") << "Connected is still true";
  EXPECT_EQ(linkBecomes(false).events(), "disconnected -");
  EXPECT_EQ(peripheral->state(), PeripheralState::connecting);
  EXPECT_EQ(calls(), kConnect);
}

TEST_F(LinkTest, ThatDoesNotEndIsToldToHaveEndedAndNotUsedAgainUntilItHas) {
  connect();
  bluez.byHand = {"Connect", "Disconnect"};
  cancel();
  EXPECT_EQ(runFor(9'999ms).events(), "");
  EXPECT_EQ(runFor(1ms).events(), "disconnected -");
  expectRest();
  forget();

  EXPECT_EQ(connectAgain().calls(), kDisconnect) << "asked for the end once more";
  EXPECT_EQ(linkBecomes(false).calls(), kConnect);
  EXPECT_EQ(events(), "");
  linkBecomes(true);
  EXPECT_EQ(reply("Connect").events(), "connected");
}

// --- Lost ---

TEST_F(LinkTest, TheWayItEndsMakesTheCode) {
  // Without a reason of the other end's or of time, an end in the first 30 s is the band's refusal;
  // it is told 0.5 s later, when it is clear that it is not the adapter's power that goes.
  const struct {
    const char* name;
    TimeInterval age;
    const char* reason;
    const char* event;
    TimeInterval until;
  } cases[] = {{"refused", 29'999ms, "", "disconnected 7", 500ms},
               {"lost", 30s, "", "disconnected 6", 500ms},
               {"another program's doing", 1s, "org.bluez.Reason.Local", "disconnected 7", 500ms},
               {"in vain", 1s, "org.bluez.Reason.Timeout", "disconnected 6", 0s},
               {"sent away", 1h, "org.bluez.Reason.Remote", "disconnected 7", 0s}};
  for (const auto& one : cases) {
    for (const bool isRemoved : {false, true}) {
      SCOPED_TRACE(std::string(one.name) + (isRemoved ? ", removed" : ""));
      playAnew();
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
        EXPECT_EQ(runFor(one.until - 1ms).events(), "");
        runFor(1ms);
      }
      EXPECT_EQ(events(), one.event);
    }
  }
}

TEST_F(LinkTest, ThatIsLostMayBeCancelledOrAskedForAgainBeforeItIsTold) {
  connect();
  linkBecomes(false);
  EXPECT_EQ(peripheral->state(), PeripheralState::connected);
  EXPECT_EQ(cancel().events(), "disconnected -");

  EXPECT_EQ(connectAgain().events(), "connected");
  linkBecomes(false);
  connectAgain();
  EXPECT_EQ(runFor(500ms).events(), "disconnected 7, connected");

  // A reason is that of the link that ended with it, and not the next one's.
  bluez.disconnected(kBandPath, "org.bluez.Reason.Timeout");
  settle();
  linkBecomes(false);
  EXPECT_EQ(events(), "disconnected 6");
  bluez.disconnected(kBandPath, "org.bluez.Reason.Timeout");
  EXPECT_EQ(connectAgain().events(), "connected");
  linkBecomes(false);
  EXPECT_EQ(runFor(500ms).events(), "disconnected 7");
  EXPECT_EQ(connectAgain().events(), "connected");

  // Our own end is clean whatever the reason.
  bluez.byHand = {"Disconnect"};
  cancel();
  EXPECT_EQ(loseLink("org.bluez.Reason.Local").events(), "disconnected -");
  EXPECT_EQ(loop.pendingTimers(), 0U);
}

TEST_F(LinkTest, WhatObjectsFetchedAnewTellCountsBeforeItIsAnnounced) {
  const struct {
    const char* name;
    std::function<void()> place;
    const char* events;
  } cases[] = {{"the link is gone", [this] { bluez.place(kBandPath, kDeviceInterface, band()); },
                "disconnected 7"},
               {"the device is gone",
                [this] {
                  bluez.clear();
                  bluez.place(kHci0, kAdapterInterface, {{"Powered", true}});
                },
                "disconnected 7"},
               {"power is gone", [this] { bluez.place(kHci0, kAdapterInterface, {}); },
                "disconnected -, state 4"}};
  for (const auto& one : cases) {
    SCOPED_TRACE(one.name);
    playAnew();
    connect();
    one.place();
    changeBand({{"ServicesResolved", true}});  // which makes them be fetched
    EXPECT_EQ(runFor(500ms).events(), one.events);
  }
}

TEST_F(LinkTest, AnEndThatIsToldWhenTheLinkIsBackAlreadyIsToldAsAnEnd) {
  makeManager();
  simulated::SimulatedRunLoop slow{clock, zone};
  manager.reset();
  manager = radio->makeCentralManager(recorder, slow.makeSerialQueue("slow"), {});
  settle();
  askToConnect();
  slow.runUntilIdle();
  forget();
  cancel();
  connectAgain();
  EXPECT_EQ(calls(), kDisconnect + ", " + kConnect);
  slow.runUntilIdle();
  EXPECT_EQ(recorder->take(), "disconnected -, connected");
  manager.reset();
}

// --- Reentrancy and the end ---

TEST_F(LinkTest, ReconnectingFromInsideTheDisconnectionWorks) {
  connect();
  recorder->react = [this](const std::string& event) {
    if (event == "disconnected 7") {
      connectAgain();
    }
  };
  EXPECT_EQ(loseLink("org.bluez.Reason.Remote").events(), "disconnected 7, connected");
}

TEST_F(LinkTest, AllAreAskedToEndWithoutWaitingWhenTheProcessGoes) {
  connect();
  bluez.byHand = {"Disconnect"};
  radio->endLinks();
  EXPECT_EQ(bluez.takeCalls(), kDisconnect);
  EXPECT_EQ(bluez.pending(), "") << "nobody waits for an answer";
  cancel();
  forget();
  radio->endLinks();
  EXPECT_EQ(calls(), "") << "it was asked for already";
}

TEST_F(LinkTest, TheManagerMayGoInAnyCallback) {
  for (const std::string last : {"connected", "disconnected -", "state 4"}) {
    SCOPED_TRACE(last);
    playAnew();
    connect();
    recorder->react = [this, &last](const std::string& event) {
      if (event == last) {
        manager.reset();
      }
    };
    auto& after = last == "connected" ? connectAgain() : setPower(false);
    EXPECT_TRUE(after.events().ends_with(last));
    expectRest();
    peripheral->discoverServices(std::nullopt);
    peripheral->readRSSI();
    EXPECT_EQ(events(), "");
    expectRest();
  }
}

}  // namespace
}  // namespace wrixel2::platform::bluez
