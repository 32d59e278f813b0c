#include "band/BandProfile.h"
#include "protocol/MBBLE/Services/MBAuthService.h"
#include "tests/protocol/MBBLE/FakePeripheral.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::Bytes;
using platform::CentralState;
using platform::Dictionary;
using platform::LogLevel;
using platform::simulated::RadioOperation;
using Lines = std::vector<std::string>;

constexpr std::string_view kAddress = "c8:0f:10:aa:bb:0c";
constexpr std::string_view kNoAddress = "00:00:00:00:00:00";
constexpr std::string_view kCapabilities = "org.corvale.wrixel2.capabilities";

class ConnectionTest : public SessionFixture {
 protected:
  /// The lock file as a manager finds it when it is made.
  void lockTo(std::string_view text) {
    phone.fileManager.addFile(phone.systemInfo.lockFilePath, text);
  }
  long connections() const {
    return static_cast<long>(countOfLog(LogLevel::info, "Peripheral successfully connected :)"));
  }
  void askForCapabilities() {
    phone.distributedNotificationCenter.postFromOutside(
        {"org.corvale.wrixel2.capReq", std::nullopt, {}});
    settle();
  }
};

// --- Powering on and finding a band ---

TEST_F(ConnectionTest, PoweringOnStartsTheFirstConnectionTwoSecondsLater) {
  lockTo(" C8:0F:10:AA:BB:0C\n");
  makeManager();
  EXPECT_EQ(manager->state(), SessionState::poweredOff);
  settle();
  EXPECT_EQ(manager->state(), SessionState::idle);
  EXPECT_EQ(manager->macToLock(), "C8:0F:10:AA:BB:0C");
  Lines services;
  for (const auto& uuid : manager->services()) {
    services.push_back(uuid.text());
  }
  EXPECT_EQ(services, (Lines{"fee1", "1802", "1811", "fee0", "180d"}));
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Central manager status has changed -> PoweredOn",
                   "Band locked to:  C8:0F:10:AA:BB:0C\n"}));
  runFor(Milliseconds(1999));
  EXPECT_EQ(manager->state(), SessionState::idle);
  runFor(Milliseconds(1));
  EXPECT_EQ(manager->state(), SessionState::scanning);
}

TEST_F(ConnectionTest, ALockFileThatCannotBeReadIsNoLock) {
  makeManager();
  settle();
  EXPECT_EQ(manager->macToLock(), "");
  EXPECT_TRUE(hasLog(LogLevel::info, "Band locked to: (null)"));
  ASSERT_EQ(warnings().size(), 1U);
  EXPECT_TRUE(warnings()[0].starts_with("Could not open file: ")) << warnings()[0];
  EXPECT_TRUE(warnings()[0].ends_with(" Probably no active locks")) << warnings()[0];

  lockTo("c8:0f:10:\xc3\xa4");
  makeManager();
  settle();
  EXPECT_EQ(manager->macToLock(), "");
  EXPECT_TRUE(hasLog(LogLevel::warning, "is not ASCII text Probably no active locks"));
}

TEST_F(ConnectionTest, ABandThatIsScannedIsConnectedAndLetGoOfAfterAWhile) {
  makeManager();
  runFor(Milliseconds(2100));
  EXPECT_EQ(manager->state(), SessionState::connected);
  EXPECT_EQ(peripheral()->mac(), kAddress);
  EXPECT_FALSE(manager->isScanning());
  EXPECT_EQ(watchdogs(), std::vector<long>{45});
  runFor(Milliseconds(44999));
  EXPECT_TRUE(peripheral()->isConnected());
  runFor(Milliseconds(1));
  EXPECT_FALSE(peripheral()->isConnected());
  EXPECT_EQ(manager->state(), SessionState::idle);
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
  EXPECT_EQ(connections(), 1);
}

TEST_F(ConnectionTest, BandsThatThePhoneHoldsAlreadyAreConnectedWithoutAScan) {
  const auto other = addBand("c8:0f:10:00:00:02");
  phone.radio.connectBySomebodyElse(*band);
  phone.radio.connectBySomebodyElse(*other);
  makeManager();
  runFor(Seconds(3));
  EXPECT_TRUE(hasLog(LogLevel::warning, "Somebody is already connected. Found 2 peripheral(s)"));
  EXPECT_EQ(watchdogs(), std::vector<long>{45});
  for (const auto& known : manager->bands()) {
    EXPECT_EQ(known->mac(), kNoAddress);
    EXPECT_TRUE(known->isInitialized());
  }
  EXPECT_FALSE(hasLog(LogLevel::info, "Advertisement Data"));

  // Known ones are taken again without a look at their names or the lock.
  manager->setMacToLock("c8:0f:10:00:00:09");
  forgetRecords();
  manager->initialConnectionRequest([] {});
  EXPECT_TRUE(hasLog(LogLevel::warning, "findPeripheral not null Name=MI Band 2 MAC=00:00"));
  EXPECT_TRUE(hasLog(LogLevel::warning, "Somebody is already connected. Found 2 peripheral(s)"));
}

TEST_F(ConnectionTest, WithoutOneThatCountsItScans) {
  phone.radio.connectBySomebodyElse(*band);
  lockTo(kAddress);
  makeManager();
  runFor(Seconds(2));
  EXPECT_TRUE(hasLog(LogLevel::warning,
                     "Skipping band due to lock. Locked to #c8:0f:10:aa:bb:0c# found "
                     "#00:00:00:00:00:00#"));
  EXPECT_EQ(manager->state(), SessionState::scanning);

  manager.reset();
  phone.radio.respondsToRetrieveConnectedPeripherals = false;
  phone.fileManager.removeItemAtPath(phone.systemInfo.lockFilePath);
  makeManager();
  runFor(Seconds(2));
  EXPECT_EQ(manager->state(), SessionState::scanning);
}

TEST_F(ConnectionTest, AScanEndsAfterAMinuteAndTouchesNoLink) {
  band->setIsInRange(false);
  makeManager();
  runFor(Seconds(2));
  EXPECT_TRUE(manager->isScanning());
  band->setIsInRange(true);
  runFor(Milliseconds(200));
  ASSERT_TRUE(peripheral()->isInitialized());
  manager->connectedMode(true);
  manager->initialScanForBandWithBlock([](const auto&, auto, const auto&) {});
  runFor(Milliseconds(59999));
  EXPECT_TRUE(manager->isScanning());
  runFor(Milliseconds(1));
  EXPECT_FALSE(manager->isScanning());
  EXPECT_TRUE(peripheral()->isInitialized());
}

struct Advertised {
  std::string_view what;
  std::optional<std::string> name;
  std::optional<std::size_t> length;  ///< of the manufacturer data; none: no advertisement
  std::string lock;
  std::string mac;  ///< empty: not accepted
};

TEST_F(ConnectionTest, OnlyBandsThatTheLockAdmitsAreKnown) {
  const std::string address(kAddress);
  const std::string unknown(kNoAddress);
  const Advertised cases[] = {{"just long enough", "MI Band 2", 26, "", address},
                              {"longer", "MI Band 2", 30, "", address},
                              {"too short for an address", "MI Band 2", 25, "", unknown},
                              {"nothing of the maker", "MI Band 2", 0, "", unknown},
                              {"not advertised", "MI Band 2", std::nullopt, "", unknown},
                              {"other case", "Mi Band 2", 26, "", ""},
                              {"longer name", "MI Band 2 ", 26, "", ""},
                              {"no name", std::nullopt, 26, "", ""},
                              {"its lock", "MI Band 2", 26, address, address},
                              {"its lock in capitals", "MI Band 2", 26, "C8:0F:10:AA:BB:0C", ""},
                              {"another's lock", "MI Band 2", 26, "c8:0f:10:aa:bb:0d", ""},
                              {"locked, address not told", "MI Band 2", 25, address, ""},
                              {"locked, not advertised", "MI Band 2", std::nullopt, address, ""}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    manager.reset();
    makeManager();
    manager->setMacToLock(test.lock);
    Dictionary advertisement;
    if (test.length.value_or(0) > 0) {
      Bytes data(20, 0x11);
      for (const std::uint8_t byte : {0xC8, 0x0F, 0x10, 0xAA, 0xBB, 0x0C, 1, 2, 3, 4}) {
        data.push_back(byte);
      }
      data.resize(*test.length);
      advertisement.emplace("kCBAdvDataManufacturerData", data);
    }
    const auto found = manager->handlePeripheral(std::make_shared<FakePeripheral>(test.name),
                                                 test.length ? &advertisement : nullptr);
    EXPECT_EQ(found ? found->mac() : "", test.mac);
    EXPECT_EQ(manager->count(), test.mac.empty() ? 0U : 1U);
    EXPECT_EQ(hasLog(LogLevel::warning, "Skipping band due to lock."),
              test.name == "MI Band 2" && test.mac.empty());
  }
  EXPECT_FALSE(hasLog(LogLevel::error, ""));
}

TEST_F(ConnectionTest, AnUnknownAddressReadsSoInTheLog) {
  makeManager();
  const Dictionary advertisement{{"kCBAdvDataManufacturerData", Bytes{1, 2, 3, 4, 5}}};
  manager->handlePeripheral(std::make_shared<FakePeripheral>("MI Band 2"), &advertisement);
  const Dictionary nameOnly{{"kCBAdvDataLocalName", "MI"}};
  manager->handlePeripheral(std::make_shared<FakePeripheral>("MI Band 2"), &nameOnly);
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Advertisement Data during hanlde peripheral: <01020304 05> Local name:  ",
                   "Advertisement Data during hanlde peripheral: (null) Local name: MI "}));
}

TEST_F(ConnectionTest, ALockInCapitalsStillAdmitsABandThatIsKnown) {
  connectBand();
  manager->disconnectMi();
  settle();
  manager->setMacToLock("C8:0F:10:AA:BB:0C");
  manager->doConnectWithPeripheral(peripheral());
  settle();
  EXPECT_TRUE(peripheral()->isInitialized());

  manager->setMacToLock("c8:0f:10:aa:bb:0d");
  manager->doConnectWithPeripheral(peripheral());
  EXPECT_EQ(manager->state(), SessionState::connected);
  EXPECT_TRUE(hasLog(LogLevel::warning,
                     "Skipping band due to lock. Locked to c8:0f:10:aa:bb:0d found "
                     "c8:0f:10:aa:bb:0c"));
}

TEST_F(ConnectionTest, AHangingAttemptIsGivenUpAndTheRequestKept) {
  connectBand();
  manager->disconnectMi();
  settle();
  band->setIsInRange(false);
  manager->requestHeartRequestWithMode(0);
  EXPECT_EQ(manager->state(), SessionState::connecting);
  runFor(Milliseconds(44999));
  EXPECT_EQ(manager->state(), SessionState::connecting);
  runFor(Milliseconds(1));
  EXPECT_EQ(manager->state(), SessionState::idle);
  EXPECT_FALSE(manager->isHeartRateActive()) << "the session's watchdog is due as well";
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

// --- Ends of links ---

TEST_F(ConnectionTest, ALinkThatIsLostIsMadeAnewOnlyWhereThereIsWork) {
  const std::pair<std::string_view, std::function<void()>> works[] = {
      {"", [] {}},
      {"notification", [this] { manager->sendAlertToPeripheralsWithMode(alert(1, 1)); }},
      {"heart rate", [this] { manager->setHeartRateActive(true); }},
      {"battery never read", [this] { peripheral()->setBatteryInfo(std::nullopt); }},
      {"steps",
       [this] {
         phone.radio.failNext(RadioOperation::read, {5, "no"}, band::kRealtimeSteps);
         manager->requestSteps();
       }},
      {"connected mode", [this] { manager->connectedMode(true); }},
      {"time", [this] {
         phone.radio.timings.exchange = Seconds(1);
         manager->setDateTime(phone.clock.now());
       }}};
  for (const long code : {6L, 7L}) {
    for (const auto& [what, raise] : works) {
      SCOPED_TRACE(what);
      manager.reset();
      connectBand();
      raise();
      settle();
      forgetRecords();
      ASSERT_FALSE(band->drop(code));
      phone.radio.timings.exchange = Seconds(0);
      settle();
      EXPECT_EQ(connections(), what.empty() ? 0 : 1);
      EXPECT_TRUE(hasLog(LogLevel::warning, "Central manager status has changed -> DISCONNECT (" +
                                                std::to_string(code) + ")"));
      EXPECT_EQ(manager->state(), what.empty() ? SessionState::idle : SessionState::connected);
    }
  }
}

TEST_F(ConnectionTest, TheFlagsAreLoggedInTheirOrder) {
  connectBand();
  manager->setHeartRateRequested(true);
  manager->sendAlertToPeripheralsWithMode(alert(1, 1));
  manager->connectedMode(true);
  forgetRecords();
  band->drop(6);
  settle();
  EXPECT_EQ(warnings(),
            (Lines{"Central manager status has changed -> DISCONNECT (6)",
                   "Ready for connect callback after err. HrActive:NO HrReqstd:YES notifActive:YES "
                   "stepsActive:NO stepExtraTime:NO connectedMode:YES SetTimeActive:NO"}));
}

TEST_F(ConnectionTest, ACleanEndConnectsNothingWhateverIsPending) {
  connectBand();
  manager->sendAlertToPeripheralsWithMode(alert(1, 1));
  manager->connectedMode(true);
  settle();
  forgetRecords();
  peripheral()->disconnect();
  settle();
  EXPECT_EQ(manager->state(), SessionState::idle);
  EXPECT_TRUE(manager->isNotificationActive());
  EXPECT_EQ(connections(), 0);
  EXPECT_TRUE(phone.log.lines().empty());
}

TEST_F(ConnectionTest, ABandThatEndsTheLinkTwiceInARowIsLeftAlone) {
  band->refuseAuthentication(1000);
  makeManager();
  runFor(Milliseconds(2100));
  const auto dropped = [&](long code) {
    forgetRecords();
    EXPECT_FALSE(band->drop(code));
    settle();
    return connections();
  };
  constexpr std::string_view kLoop = "Double auth error, skipping possible loop";
  EXPECT_EQ(dropped(7), 1);
  EXPECT_EQ(dropped(7), 0);
  EXPECT_EQ(countOfLog(LogLevel::warning, kLoop), 1U);
  // Still remembered when a request has connected it again, until it ends in another way.
  manager->doConnectWithPeripheral(peripheral());
  settle();
  EXPECT_EQ(dropped(7), 0);
  manager->doConnectWithPeripheral(peripheral());
  settle();
  EXPECT_EQ(dropped(6), 1);
  EXPECT_EQ(dropped(7), 1);
  // A connection that succeeds forgets it too.
  band->refuseAuthentication(0);
  EXPECT_EQ(dropped(6), 1);
  ASSERT_TRUE(peripheral()->isInitialized());
  manager->connectedMode(true);
  EXPECT_EQ(dropped(7), 1);
  EXPECT_EQ(dropped(7), 1);
}

TEST_F(ConnectionTest, AfterConnectingTheRequestsAreServedInOrder) {
  connectBand();
  manager->disconnectMi();
  settle();
  band->setIsInRange(false);
  manager->requestSteps();
  manager->requestHeartRequestWithMode(2);
  manager->setDateTime(std::chrono::floor<std::chrono::days>(phone.clock.now()) + Seconds(1));
  manager->sendAlertToPeripheralsWithMode(alert(12, 28));
  forgetRecords();
  band->setIsInRange(true);
  settle();
  // Behind the authentication. An alert begins with the link's parameters, and its icon goes out
  // two turns later; the last write is the set-up's, which runs on meanwhile.
  Lines requests = writes();
  requests.erase(requests.begin(), requests.begin() + 2);
  EXPECT_EQ(requests, (Lines{"0 2a04 270031000000f401", "0 2a2b ea07030200000102000000 ack",
                             "0 2a39 150101 ack", "0 2a06 02", "0 2a04 270031000000f401"}));
  EXPECT_EQ(posted("org.corvale.wrixel2.steps", "steps"), Lines{"0"});
  EXPECT_FALSE(manager->isStepsActive() || manager->isSetTimeActive());
  EXPECT_TRUE(manager->isNotificationActive() && manager->isHeartRateRequested());
}

TEST_F(ConnectionTest, AMeasurementThatRunsAlreadyIsNotAskedForAgain) {
  connectBand();
  manager->requestHeartRequestWithMode(2);
  settle();
  forgetRecords();
  band->drop(6);
  settle();
  EXPECT_TRUE(peripheral()->isInitialized());
  EXPECT_EQ(writesTo("2a39"), Lines{});
  EXPECT_EQ(watchdogs(), std::vector<long>{23});
}

// --- Watchdog, connected mode, power ---

TEST_F(ConnectionTest, AReadOfStepsIsGivenMoreTimeOnce) {
  connectBand();
  phone.radio.timings.exchange = std::chrono::hours(1);
  manager->requestSteps();
  runFor(Seconds(45));
  EXPECT_TRUE(hasLog(LogLevel::warning, "Should already disconnect, but give some more time ..."));
  EXPECT_TRUE(manager->isStepExtraTime());
  EXPECT_TRUE(peripheral()->isConnected());
  runFor(Milliseconds(44999));
  EXPECT_EQ(posted("org.corvale.wrixel2.steps", "steps"), Lines{});
  runFor(Milliseconds(1));
  EXPECT_EQ(posted("org.corvale.wrixel2.steps", "steps"), Lines{"999999"});
  EXPECT_FALSE(peripheral()->isConnected());
  EXPECT_FALSE(manager->isStepsActive());
  EXPECT_FALSE(manager->isStepExtraTime());
}

TEST_F(ConnectionTest, InConnectedModeTheLinkStays) {
  connectBand();
  manager->connectedMode(true);
  phone.radio.timings.exchange = std::chrono::hours(1);
  manager->requestSteps();
  runFor(Seconds(45));
  EXPECT_TRUE(hasLog(LogLevel::info, "Connected mode, not disconnecting"));
  EXPECT_FALSE(manager->isStepsActive());
  EXPECT_TRUE(peripheral()->isConnected());
  phone.radio.timings.exchange = Milliseconds(0);

  EXPECT_EQ(watchdogs(), std::vector<long>{});
  manager->connectedMode(true);
  EXPECT_EQ(watchdogs(), std::vector<long>{});
  manager->connectedMode(false);
  EXPECT_EQ(watchdogs(), std::vector<long>{23});
  manager->connectedMode(false);
  runFor(Milliseconds(22999));
  EXPECT_TRUE(peripheral()->isConnected());
  runFor(Milliseconds(1));
  EXPECT_FALSE(peripheral()->isConnected());

  manager->connectedMode(true);
  settle();
  EXPECT_TRUE(peripheral()->isInitialized()) << "turning it on connects what is known";
}

TEST_F(ConnectionTest, DisconnectingGivesUpEverythingButTheModes) {
  connectBand();
  manager->connectedMode(true);
  manager->setIsContinuousHR(true);
  manager->setMacToLock(std::string(kAddress));
  manager->sendAlertToPeripheralsWithMode(alert(1, 1));
  manager->requestHeartRequestWithMode(0);
  settle();
  forgetRecords();
  manager->disconnectMi();
  settle();
  EXPECT_FALSE(peripheral()->isConnected());
  EXPECT_FALSE(peripheral()->authService().isAuthorized());
  EXPECT_FALSE(manager->isNotificationActive() || manager->isHeartRateActive() ||
               manager->isHeartRateRequested() || manager->isSetTimeActive());
  EXPECT_TRUE(manager->isConnectedMode());
  EXPECT_TRUE(manager->isContinuousHR());
  EXPECT_EQ(manager->macToLock(), kAddress);
  EXPECT_EQ(posted("org.corvale.wrixel2.steps", "steps"), Lines{}) << "none was asked for";
  runFor(Seconds(1));  // the alert's own delay
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

TEST_F(ConnectionTest, PowerGoesAndComesBack) {
  connectBand();
  manager->connectedMode(true);
  manager->sendAlertToPeripheralsWithMode(alert(1, 1));
  settle();
  forgetRecords();
  phone.radio.setState(CentralState::poweredOff);
  settle();
  EXPECT_EQ(manager->state(), SessionState::poweredOff);
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            Lines{"Central manager status has changed -> PoweredOff"});
  EXPECT_FALSE(manager->isNotificationActive());
  forgetRecords();
  askForCapabilities();
  EXPECT_EQ(phone.distributedNotificationCenter.postings(kCapabilities).size(), 0U);

  phone.radio.setState(CentralState::poweredOn);
  runFor(Seconds(3));
  EXPECT_TRUE(peripheral()->isInitialized());
  forgetRecords();
  askForCapabilities();
  EXPECT_EQ(phone.distributedNotificationCenter.postings(kCapabilities).size(), 1U);
}

TEST_F(ConnectionTest, AResetForgetsTheBandsAndRequestsForCapabilitiesAreStillAnsweredOnce) {
  connectBand();
  phone.radio.setState(CentralState::resetting);
  settle();
  EXPECT_TRUE(hasLog(LogLevel::info, "Central manager status has changed -> Resetting"));
  EXPECT_TRUE(manager->bands().empty());
  phone.radio.setState(CentralState::poweredOn);
  runFor(Seconds(3));
  EXPECT_TRUE(peripheral()->isInitialized());
  forgetRecords();
  askForCapabilities();
  EXPECT_EQ(phone.distributedNotificationCenter.postings(kCapabilities).size(), 1U);
}

TEST_F(ConnectionTest, ABandIsSetUpAgainAfterTheRadioWasAwayForAnyReason) {
  for (const auto state :
       {CentralState::unknown, CentralState::resetting, CentralState::unsupported,
        CentralState::unauthorized, CentralState::poweredOff}) {
    SCOPED_TRACE(static_cast<int>(state));
    manager.reset();
    connectBand();
    phone.radio.setState(state);
    settle();
    phone.radio.setState(CentralState::poweredOn);
    runFor(Seconds(3));
    EXPECT_TRUE(peripheral()->isInitialized());
  }
}

TEST_F(ConnectionTest, OtherStatesOfTheRadioAreLogged) {
  makeManager();
  manager->setState(SessionState::scanning);
  manager->managerUnknownHandler();
  manager->managerUnauthorizedHandler();
  manager->managerUnsupportedHandler();
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Central manager status has changed -> Unknown",
                   "Central manager status has changed -> Unauthorized",
                   "Central manager status has changed -> Unsupported"}));
  EXPECT_TRUE(hasLog(LogLevel::warning, "-> Unknown"));
  EXPECT_EQ(manager->state(), SessionState::scanning);
}

TEST_F(ConnectionTest, TheStatusObserverIsCalledOnceATurnAndNeverInside) {
  makeManager();
  int calls = 0;
  manager->setStatusObserver([&] { ++calls; });
  manager->setState(SessionState::idle);
  manager->setState(SessionState::scanning);
  EXPECT_EQ(calls, 0);
  settle();
  EXPECT_GT(calls, 0);
  runFor(Seconds(3));
  ASSERT_TRUE(peripheral()->isInitialized());
  for (const auto& change : std::initializer_list<std::function<void()>>{
           [&] { band->setSteps(5); }, [&] { manager->lockToMac(); },
           [&] { manager->disconnectMi(); }}) {
    calls = 0;
    change();
    settle();
    EXPECT_GT(calls, 0);
  }
  manager->setStatusObserver([&] { manager->setStatusObserver(nullptr); });
  manager->setState(SessionState::idle);
  settle();
}

}  // namespace
}  // namespace wrixel2::mbble
