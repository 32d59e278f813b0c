#include "protocol/MBBLE/Services/MBAuthService.h"
#include "tests/protocol/BleObjects/FakeBluetooth.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::Bytes;
using platform::CentralState;
using platform::Dictionary;
using platform::LogLevel;
using Lines = std::vector<std::string>;

constexpr std::string_view kAddress = "c8:0f:10:aa:bb:0c";
constexpr std::string_view kNoAddress = "00:00:00:00:00:00";

class ConnectionTest : public SessionFixture {
 protected:
  /// The lock file as a manager finds it when it is made.
  void lockTo(std::string_view text) {
    phone.fileManager.addFile(phone.systemInfo.lockFilePath, text);
  }
  std::size_t connections() const {
    return countOfLog(LogLevel::info, "Peripheral successfully connected :)");
  }
  static std::shared_ptr<platform::Peripheral> device(std::optional<std::string> name) {
    auto made = std::make_shared<bleobjects::FakePeripheral>();
    made->deviceName = std::move(name);
    return made;
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
  EXPECT_EQ(connections(), 1U);
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

TEST_F(ConnectionTest, ALinkOfAnEarlierRunEndsAndAnotherProgramsIsLeftAlone) {
  const auto other = addBand("c8:0f:10:00:00:02");
  other->setIsInRange(false);
  connectBand();
  EXPECT_EQ(phone.userDefaults.arrayForKey("servedPeripherals").value_or(platform::Array()).size(),
            1U);
  other->setIsInRange(true);
  for (const bool isLocked : {true, false}) {
    SCOPED_TRACE(isLocked);
    manager.reset();
    settle();
    phone.radio.connectBySomebodyElse(*band);
    if (isLocked) {
      phone.radio.connectBySomebodyElse(*other);
      lockTo(kAddress);
    } else {
      other->setIsInRange(false);
      runFor(Seconds(30));
      phone.fileManager.removeItemAtPath(phone.systemInfo.lockFilePath);
    }
    forgetRecords();
    makeManager();
    runFor(Seconds(1));
    EXPECT_FALSE(band->isAdvertising()) << "powering on ends nothing";
    runFor(Seconds(5));
    EXPECT_EQ(connections(), 1U);
    EXPECT_TRUE(peripheral()->isInitialized());
    EXPECT_EQ(peripheral()->mac(), kAddress) << "so that it can be locked to";
    EXPECT_FALSE(other->isAdvertising()) << "its link stands";
  }
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
    const auto found =
        manager->handlePeripheral(device(test.name), test.length ? &advertisement : nullptr);
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
  manager->handlePeripheral(device("MI Band 2"), &advertisement);
  const Dictionary nameOnly{{"kCBAdvDataLocalName", "MI"}};
  manager->handlePeripheral(device("MI Band 2"), &nameOnly);
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Advertisement Data during hanlde peripheral: <01020304 05> Local name:  ",
                   "Advertisement Data during hanlde peripheral: (null) Local name: MI "}));
}

TEST_F(ConnectionTest, ALockInCapitalsStillAdmitsABandThatIsKnown) {
  connectBand();
  disconnectBand();
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

// --- Ends of links ---

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

TEST_F(ConnectionTest, ABandThatEndsTheLinkTwiceInARowIsLeftAlone) {
  band->refuseAuthentication(1000);
  makeManager();
  runFor(Milliseconds(2100));
  constexpr std::string_view kLoop = "Double auth error, skipping possible loop";
  for (const std::size_t loops : {0U, 1U}) {
    forgetRecords();
    EXPECT_FALSE(band->drop(7));
    settle();
    EXPECT_EQ(connections(), 1 - loops);
    EXPECT_EQ(countOfLog(LogLevel::warning, kLoop), loops);
  }
}

TEST_F(ConnectionTest, AfterConnectingTheRequestsAreServedInOrder) {
  connectBand();
  disconnectBand();
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

// --- Watchdog, connected mode, power ---

TEST_F(ConnectionTest, TheWatchdogTellsWhatItDoesInsteadOfDisconnecting) {
  connectBand();
  phone.radio.timings.exchange = std::chrono::hours(1);
  manager->requestSteps();
  runFor(Seconds(45));
  EXPECT_TRUE(hasLog(LogLevel::warning, "Should already disconnect, but give some more time ..."));
  EXPECT_TRUE(manager->isStepExtraTime());
  manager->connectedMode(true);
  runFor(Seconds(45));
  EXPECT_TRUE(hasLog(LogLevel::info, "Connected mode, not disconnecting"));
  EXPECT_FALSE(manager->isStepsActive());
  EXPECT_TRUE(peripheral()->isConnected());
  manager->setIsContinuousHR(true);
  manager->disconnectMi();
  settle();
  EXPECT_FALSE(peripheral()->authService().isAuthorized());
  EXPECT_TRUE(manager->isContinuousHR()) << "the modes outlive it";
}

TEST_F(ConnectionTest, StatesOfTheRadioAreLogged) {
  makeManager();
  settle();
  const std::pair<CentralState, std::string_view> kCases[] = {
      {CentralState::unknown, "Unknown"},
      {CentralState::resetting, "Resetting"},
      {CentralState::unsupported, "Unsupported"},
      {CentralState::unauthorized, "Unauthorized"},
      {CentralState::poweredOff, "PoweredOff"}};
  for (const auto& [state, name] : kCases) {
    forgetRecords();
    phone.radio.setState(state);
    settle();
    EXPECT_EQ(phone.log.messages("MBCentralManager"),
              Lines{"Central manager status has changed -> " + std::string(name)});
  }
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
