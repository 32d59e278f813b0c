#include <fmt/format.h>

#include "band/BandProfile.h"
#include "protocol/MBBLE/Services/MBAlertService.h"
#include "protocol/MBBLE/Services/MBAncsAlertService.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::LogLevel;
using platform::simulated::RadioOperation;
using Lines = std::vector<std::string>;

constexpr std::string_view kSteps = "org.corvale.wrixel2.steps";
constexpr std::string_view kStopwatch = "org.corvale.wrixel2.stopwatch";
const std::string kLowParams = "2a04 270031000000f401";

class RequestsTest : public SessionFixture {
 protected:
  /// The first alert of a link waits; this takes the wait away.
  void sendFirstAlert() {
    manager->sendAlertToPeripheralsWithMode(alert(1, 28));
    settle();
    forgetRecords();
  }
  void send(const std::shared_ptr<mbmodel::MBVibrateModel>& mode) {
    manager->sendAlertToPeripheralsWithMode(mode);
  }
};

// --- What is dropped, and what starts a connection ---

TEST_F(RequestsTest, WithoutPowerRequestsAreOnlyLogged) {
  connectBand();
  phone.radio.setState(platform::CentralState::poweredOff);
  settle();
  forgetRecords();
  send(alert(1, 9, 4, "Anna"));
  manager->requestHeartRequestWithMode(2);
  manager->requestSteps();
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Request for Alert vibration with mode Repeat 1 Icon 9 Pattern 4 Text: "
                   "<private> ...",
                   "Request for Heart Rate measurement with mode 2 ...",
                   "Request for Step measurement ..."}));
  EXPECT_FALSE(manager->isNotificationActive() || manager->isHeartRateActive() ||
               manager->isStepsActive());
  EXPECT_EQ(watchdogs(), std::vector<long>{});
}

TEST_F(RequestsTest, AnAlertWithoutIconOrRepeatIsNotSentButEndsAStop) {
  connectBand();
  phone.log.setShowsPrivate(true);
  for (const auto& mode : {alert(1, 0, 0, "Anna"), alert(0, 9), {}}) {
    peripheral()->alertService().setShouldStop(true);
    peripheral()->ancsAlertService().setShouldStop(true);
    send(mode);
    EXPECT_FALSE(peripheral()->alertService().shouldStop());
    EXPECT_FALSE(peripheral()->ancsAlertService().shouldStop());
  }
  runFor(Seconds(2));
  EXPECT_EQ(writes(), Lines{});
  EXPECT_FALSE(manager->isNotificationActive());
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Request for Alert vibration with mode Repeat 1 Icon 0 Pattern 0 Text: Anna ...",
                   "Request for Alert vibration with mode Repeat 0 Icon 9 Pattern 0 Text: (null) "
                   "...",
                   "No need to forward (possible) notification",
                   "Request for Alert vibration with mode (null) ..."}));
  EXPECT_TRUE(hasLog(LogLevel::error, "No need to forward (possible) notification"));
}

TEST_F(RequestsTest, WithoutAKnownBandOnlyAnAlertLooksForOne) {
  band->setIsInRange(false);
  makeManager();
  settle();
  manager->requestSteps();
  manager->requestHeartRequestWithMode(0);
  EXPECT_TRUE(manager->isStepsActive() && manager->isHeartRateActive());
  EXPECT_EQ(watchdogs(), std::vector<long>{45});
  EXPECT_EQ(manager->state(), SessionState::idle);
  send(alert(1, 28));
  EXPECT_EQ(manager->state(), SessionState::scanning);
  band->setIsInRange(true);
  runFor(Milliseconds(100));
  EXPECT_EQ(writesTo("2a06"), Lines{"02"});
}

TEST_F(RequestsTest, ABandThatIsAwayIsConnectedAndServedThen) {
  connectBand();
  manager->disconnectMi();
  settle();
  forgetRecords();
  send(alert(2, 9, 0, "Hi"));
  EXPECT_EQ(manager->state(), SessionState::connecting);
  runFor(Seconds(5));
  EXPECT_EQ(writesTo("2a46"), (Lines{"05014869 ack", "05014869 ack"}));
  EXPECT_EQ(writesTo("2a06"), Lines{"fff401f40102"});
}

TEST_F(RequestsTest, ABandThatIsNotSetUpIsWaitedForSixTicks) {
  band->refuseAuthentication(1000);
  makeManager();
  runFor(Milliseconds(2100));
  send(alert(1, 1));
  runFor(Milliseconds(500));
  // Two more in the meantime: there is one wait, and it begins with the last of them.
  send(alert(1, 1));
  runFor(Milliseconds(500));
  send(alert(1, 28));
  runFor(Milliseconds(14999));
  EXPECT_FALSE(hasLog(LogLevel::warning, "No retries left for request..."));
  runFor(Milliseconds(1));
  EXPECT_EQ(countOfLog(LogLevel::warning, "No retries left for request..."), 1U);
  EXPECT_TRUE(manager->isNotificationActive()) << "served at the next connection";
  runFor(Seconds(20));
  EXPECT_EQ(countOfLog(LogLevel::warning, "No retries left for request..."), 1U);
}

TEST_F(RequestsTest, TheTickAfterTheSetUpServesWhatIsStillRaised) {
  band->refuseAuthentication(1);
  makeManager();
  runFor(Milliseconds(2100));
  send(alert(1, 28));
  runFor(Milliseconds(5000));
  ASSERT_TRUE(peripheral()->isInitialized());
  EXPECT_EQ(writesTo("2a06"), Lines{"02"}) << "by the connection";
  runFor(Milliseconds(1999));
  EXPECT_EQ(writesTo("2a06").size(), 1U);
  runFor(Milliseconds(1));
  EXPECT_EQ(writesTo("2a06").size(), 2U) << "a plain alert counts as waiting until it is stopped";
  runFor(Seconds(10));
  EXPECT_EQ(writesTo("2a06").size(), 2U);
  EXPECT_FALSE(hasLog(LogLevel::warning, "No retries left"));
}

// --- Alerts ---

TEST_F(RequestsTest, TheFirstAlertOfALinkWaitsASecond) {
  struct Case {
    std::string_view what;
    std::uint64_t icon;
    bool isConnectedMode;
    bool needsParams;
    std::string_view first;
  };
  const Case cases[] = {{"plain", 30, false, true, "1000 2a06 00"},
                        {"plain, only shown", 28, false, true, "0 2a06 02"},
                        {"notification", 29, false, false, "1000 2a46 030100 ack"},
                        {"connected mode", 30, true, false, "0 2a06 00"},
                        {"connected mode, notification", 29, true, false, "0 2a46 030100 ack"},
                        {"connected mode, link changing", 30, true, true, "1000 2a06 00"}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.what);
    manager.reset();
    connectBand();
    manager->connectedMode(test.isConnectedMode);
    peripheral()->setShouldUpdateLEParams(test.needsParams);
    forgetRecords();
    send(alert(1, test.icon));
    runFor(Milliseconds(1000));
    auto sent = writes();
    if (test.needsParams) {
      ASSERT_FALSE(sent.empty());
      EXPECT_EQ(sent.front(), "0 " + kLowParams);
      sent.erase(sent.begin());
    }
    ASSERT_FALSE(sent.empty());
    EXPECT_EQ(sent.front(), test.first);

    runFor(Seconds(5));
    forgetRecords();
    send(alert(1, test.icon));
    settle();
    EXPECT_FALSE(writes().empty()) << "the next one does not wait";
    runFor(Seconds(1));
    manager->connectedMode(false);
    manager->disconnectMi();
    settle();
    forgetRecords();
    send(alert(1, 4));
    runFor(Milliseconds(999));
    EXPECT_EQ(writesTo("2a06"), Lines{}) << "the first one again";
  }
}

TEST_F(RequestsTest, PlainIconsGoToOneServiceAndStayRaised) {
  connectBand();
  sendFirstAlert();
  for (const std::uint64_t icon : {1, 4, 26, 28, 30}) {
    SCOPED_TRACE(icon);
    forgetRecords();
    send(alert(3, icon, 7, "unseen"));
    runFor(Seconds(5));
    EXPECT_EQ(writesTo("2a46"), Lines{});
    EXPECT_FALSE(writesTo("2a06").empty());
    EXPECT_TRUE(manager->isNotificationActive());
  }
}

TEST_F(RequestsTest, OtherIconsAreFollowedByThePatternAndTheText) {
  connectBand();
  sendFirstAlert();
  const auto mode = alert(3, 2, 7, "Hello");
  send(mode);
  EXPECT_FALSE(manager->isNotificationActive()) << "right after the call";
  runFor(Seconds(10));
  EXPECT_EQ(writes(),
            (Lines{"0 2a46 fa01ff ack", "100 2a06 ff4b00dc0503", "2000 2a46 050148656c6c6f ack"}));
  EXPECT_EQ(mode->iconId(), 1U);

  forgetRecords();
  send(alert(3, 9));
  runFor(Seconds(10));
  EXPECT_EQ(writes(), (Lines{"0 2a46 050100 ack", "100 2a06 fff401f40103"})) << "no text";

  forgetRecords();
  send(alert(3, 29, 7, "Hello"));
  runFor(Seconds(10));
  EXPECT_EQ(writes(), Lines{"0 2a46 030148656c6c6f ack"}) << "nothing follows icon 29";
}

TEST_F(RequestsTest, AnAlertThatTheBandRefusesIsNotFollowed) {
  connectBand();
  sendFirstAlert();
  phone.radio.failNext(RadioOperation::write, {13, "refused"}, band::kNewAlert);
  send(alert(3, 2, 7, "Hello"));
  runFor(Seconds(10));
  EXPECT_EQ(writes(), Lines{});
  EXPECT_EQ(warnings(), Lines{"Alert request Err: refused (code 13) ..."});
}

TEST_F(RequestsTest, ARingingCallIsShownTenTimesUnlessItIsStopped) {
  connectBand();
  manager->connectedMode(true);
  send(alert(20, 27, 0, "Anna"));
  runFor(Milliseconds(44999));
  EXPECT_EQ(writesTo("2a46"), Lines(9, "fa010a ack"));
  runFor(Seconds(60));
  EXPECT_EQ(writesTo("2a46"), Lines(10, "fa010a ack"));
  EXPECT_TRUE(manager->isNotificationActive());

  forgetRecords();
  phone.radio.failNext(RadioOperation::write, {13, "refused"}, band::kNewAlert);
  send(alert(20, 27));
  runFor(Seconds(12));
  EXPECT_EQ(writes(), (Lines{"5000 2a46 fa010a ack", "10000 2a46 fa010a ack"}));
  EXPECT_EQ(warnings(), Lines{"Alert request Err: refused (code 13) ..."});
  manager->stopVibration();
  runFor(Seconds(60));
  EXPECT_EQ(writesTo("2a46").size(), 2U);

  send(alert(20, 27));
  settle();
  EXPECT_EQ(writesTo("2a46").size(), 3U) << "a new alert ends the stop";
  manager.reset();
  runFor(Seconds(60));
  EXPECT_EQ(writesTo("2a46").size(), 3U);
}

TEST_F(RequestsTest, ACallThatRingsOnAfterItsLinkCostsNoLaterAlert) {
  connectBand();
  send(alert(4, 27));
  // The watchdog ends the link after 20 s; what the call sends from then on comes to nothing.
  runFor(Seconds(60));
  ASSERT_FALSE(peripheral()->isConnected());
  forgetRecords();
  send(alert(1, 5));
  runFor(Seconds(5));
  EXPECT_EQ(writesTo("2a46").size(), 1U);
  EXPECT_EQ(writesTo("2a06").size(), 1U) << "the pattern follows the icon";
}

TEST_F(RequestsTest, TheLinkIsKeptByTheAlertsRepeat) {
  connectBand();
  for (const auto& [repeat, seconds] : std::initializer_list<std::pair<std::uint64_t, long>>{
           {1, 20}, {9, 20}, {10, 45}, {100, 45}, {101, 180}, {150, 180}}) {
    send(alert(repeat, 1));
    EXPECT_EQ(watchdogs(), std::vector<long>{seconds}) << repeat;
  }
}

TEST_F(RequestsTest, StoppingShortensALongAlertForTheNextLink) {
  connectBand();
  sendFirstAlert();
  for (const auto& [repeat, afterwards] :
       std::initializer_list<std::pair<std::uint64_t, std::uint64_t>>{{10, 10}, {11, 1}}) {
    const auto mode = alert(repeat, 1);
    send(mode);
    settle();
    forgetRecords();
    manager->stopVibration();
    runFor(Seconds(1));
    EXPECT_EQ(mode->repeat(), afterwards);
    EXPECT_EQ(writes(), (Lines{"0 2a06 00", "50 2a06 ff0000000000"}));
    EXPECT_EQ(watchdogs(), std::vector<long>{20});
    EXPECT_FALSE(manager->isNotificationActive());
    EXPECT_TRUE(peripheral()->alertService().shouldStop());
    EXPECT_TRUE(peripheral()->ancsAlertService().shouldStop());
  }
}

// --- Measurements ---

TEST_F(RequestsTest, HeartRateIsMeasuredInTheModeAskedForLast) {
  connectBand();
  manager->requestHeartRequestWithMode(2);
  settle();
  EXPECT_TRUE(manager->isHeartRateRequested());
  manager->requestHeartRequestWithMode(3);
  settle();
  EXPECT_EQ(writes(), (Lines{"0 2a39 150101 ack", "0 2a39 150101 ack"}));
  EXPECT_EQ(watchdogs(), std::vector<long>{45});

  manager->disconnectMi();
  settle();
  connectBand();
  manager->requestHeartRequestWithMode(1);
  runFor(Seconds(2));
  EXPECT_EQ(writes(), (Lines{"0 " + kLowParams, "0 2a39 150201 ack", "1000 2a06 fe",
                             "1150 2a06 fff401f40101"}))
      << "a buzz tells that it begins";
}

TEST_F(RequestsTest, AMeasurementThatCouldNotBeAskedForIsAskedForOnTheNextLink) {
  connectBand();
  phone.radio.failNext(RadioOperation::write, {13, "refused"}, band::kHeartRateControl);
  manager->requestHeartRequestWithMode(0);
  settle();
  EXPECT_TRUE(manager->isHeartRateActive());
  EXPECT_FALSE(manager->isHeartRateRequested());
  band->drop(6);
  settle();
  EXPECT_EQ(writesTo("2a39"), Lines{"150201 ack"});
}

TEST_F(RequestsTest, StepsArePostedOnce) {
  connectBand();
  band->setSteps(70000);
  settle();
  manager->requestSteps();
  settle();
  EXPECT_EQ(posted(kSteps, "steps"), Lines{"70000"});
  EXPECT_FALSE(manager->isStepsActive());
  EXPECT_EQ(watchdogs(), std::vector<long>{45});
}

TEST_F(RequestsTest, AReadThatDiesWithItsLinkSaysThatThereIsNoReading) {
  connectBand();
  phone.radio.timings.exchange = Seconds(1);
  manager->requestSteps();
  runFor(Milliseconds(500));
  band->drop(6);
  settle();
  EXPECT_EQ(posted(kSteps, "steps"), Lines{"999999"});
  EXPECT_FALSE(manager->isStepsActive());
}

TEST_F(RequestsTest, TheBatteryIsReadOfEveryConnectedBand) {
  connectBand();
  ASSERT_FALSE(band->setBatteryLevel(33));
  settle();
  ASSERT_EQ(peripheral()->batteryInfo()->level(), 80U);
  manager->getBatteryInfo();
  settle();
  EXPECT_EQ(peripheral()->batteryInfo()->level(), 33U);
  manager->disconnectMi();
  settle();
  forgetRecords();
  manager->getBatteryInfo();
  settle();
  EXPECT_TRUE(phone.log.lines().empty());
}

// --- Time ---

class StopwatchTest : public RequestsTest {
 protected:
  /// Today at 00:00:01, as whoever starts the stopwatch works it out.
  platform::Date start() const {
    auto today = platform::componentsFromDate(phone.clock.now(), phone.timeZone);
    today.hour = 0;
    today.minute = 0;
    today.second = 1;
    return platform::dateFromComponents(today, phone.timeZone);
  }
};

TEST_F(StopwatchTest, EightyThreeSecondsInEveryZoneAndAcrossMidnight) {
  struct Case {
    int zone;          ///< seconds east of GMT
    int hour, minute;  ///< local, when it is started
    Seconds elapsed;
    std::string_view shown;
  };
  const Case cases[] = {{0, 12, 0, Seconds(83), "00:01:23"},
                        {19800, 12, 0, Seconds(83), "00:01:23"},
                        {-10800, 3, 30, Seconds(83), "00:01:23"},
                        {50400, 23, 0, Seconds(83), "00:01:23"},
                        {3600, 23, 59, Seconds(83), "00:01:23"},
                        {3600, 23, 59, Seconds(60), "00:01:00"},
                        {-18000, 20, 0, Seconds(23 * 3600 + 59 * 60 + 58), "23:59:58"}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.zone);
    manager.reset();
    phone.timeZone.setSecondsFromGMT(test.zone);
    phone.clock.setWallClock(
        platform::dateFromComponents({2026, 7, 9, test.hour, test.minute, 0, 0}, phone.timeZone) -
        Seconds(3));
    connectBand();
    manager->connectedMode(true);
    manager->setDateTime(start());
    settle();
    EXPECT_FALSE(manager->isSetTimeActive());
    EXPECT_EQ(posted(kStopwatch, "timeDifference"), Lines{});
    EXPECT_EQ(writesTo("2a2b").size(), 1U);
    runFor(test.elapsed);
    manager->setDateTime(phone.clock.now());
    settle();
    EXPECT_EQ(posted(kStopwatch, "timeDifference"), Lines{std::string(test.shown)});
    EXPECT_EQ(writesTo("2a2b").size(), 2U);
    EXPECT_FALSE(manager->isSetTimeActive());
  }
}

TEST_F(StopwatchTest, ABandThatIsAwayIsSetAfterConnecting) {
  connectBand();
  manager->disconnectMi();
  settle();
  forgetRecords();
  manager->setDateTime(start());
  EXPECT_EQ(manager->state(), SessionState::connecting);
  settle();
  EXPECT_EQ(writesTo("2a2b"), Lines{"ea07030200000102000000 ack"});
}

TEST_F(StopwatchTest, WithoutTheBandsTimeNothingIsPostedButTheTimeIsSet) {
  connectBand();
  phone.radio.failNext(RadioOperation::read, {5, "no"}, band::kCurrentTime);
  manager->setDateTime(phone.clock.now());
  settle();
  EXPECT_EQ(posted(kStopwatch, "timeDifference"), Lines{});
  EXPECT_EQ(writesTo("2a2b").size(), 1U);
  EXPECT_FALSE(manager->isSetTimeActive());

  // A link that is lost meanwhile is made anew, and the stopwatch read then.
  forgetRecords();
  phone.radio.timings.exchange = Seconds(1);
  manager->setDateTime(phone.clock.now());
  runFor(Milliseconds(500));
  phone.radio.timings.exchange = Seconds(0);
  band->drop(6);
  settle();
  EXPECT_EQ(posted(kStopwatch, "timeDifference").size(), 1U);
  EXPECT_EQ(writesTo("2a2b").size(), 1U);
}

TEST_F(StopwatchTest, ABandThatIsNotSetUpIsSetWhenItIs) {
  connectBand();
  manager->disconnectMi();
  settle();
  band->refuseAuthentication(1);
  manager->doConnectWithPeripheral(peripheral());
  settle();
  forgetRecords();
  manager->setDateTime(phone.clock.now() - Seconds(100));
  settle();
  EXPECT_TRUE(manager->isSetTimeActive());
  runFor(Seconds(5));
  EXPECT_EQ(posted(kStopwatch, "timeDifference"), Lines{"12:00:07"});
  EXPECT_EQ(writesTo("2a2b").back(), "ea0703020b3a1702000000 ack");
  EXPECT_FALSE(manager->isSetTimeActive());
}

// --- Setting the clock right ---

class ClockSyncTest : public RequestsTest {
 protected:
  /// The present as the band is sent it.
  std::string present() const {
    const auto now = platform::componentsFromDate(phone.clock.now(), phone.timeZone);
    return fmt::format("ea07{:02x}{:02x}{:02x}{:02x}{:02x}", now.month, now.day, now.hour,
                       now.minute, now.second);
  }
};

TEST_F(ClockSyncTest, TheBandIsToldThePresentAndNothingIsReported) {
  connectBand();
  phone.clock.setWallClock(phone.clock.now() + std::chrono::hours(5));
  manager->syncClock();
  settle();
  ASSERT_EQ(writesTo("2a2b").size(), 1U);
  EXPECT_TRUE(writesTo("2a2b").front().starts_with(present()));
  EXPECT_FALSE(manager->isClockSyncActive());
  EXPECT_EQ(posted(kStopwatch, "timeDifference"), Lines{});
}

TEST_F(ClockSyncTest, ABandThatIsAwayGetsTheTimeOfTheWriteAndNotOfTheRequest) {
  connectBand();
  manager->disconnectMi();
  settle();
  forgetRecords();
  band->setIsInRange(false);
  manager->syncClock();
  runFor(Seconds(30));
  EXPECT_TRUE(manager->isClockSyncActive());
  band->setIsInRange(true);
  settle();
  ASSERT_EQ(writesTo("2a2b").size(), 1U);
  EXPECT_TRUE(writesTo("2a2b").front().starts_with(present()));
}

TEST_F(ClockSyncTest, ALinkThatIsLostMeanwhileIsMadeAnew) {
  connectBand();
  phone.radio.timings.exchange = Seconds(1);
  manager->syncClock();
  runFor(Milliseconds(500));
  phone.radio.timings.exchange = Seconds(0);
  band->drop(6);
  settle();
  EXPECT_FALSE(manager->isClockSyncActive());
  EXPECT_EQ(writesTo("2a2b").size(), 1U);
}

TEST_F(ClockSyncTest, IsGivenUpWithEverythingElse) {
  connectBand();
  manager->disconnectMi();
  settle();
  band->setIsInRange(false);
  manager->syncClock();
  manager->disconnectMi();
  EXPECT_FALSE(manager->isClockSyncActive());
}

// --- A new pairing key ---

TEST_F(RequestsTest, ANewKeyIsTriedOnANewLink) {
  connectBand();
  EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::accepted);
  band->setPairingKey("the new key");
  manager->authenticateAnew();
  EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::none);
  settle();
  EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::refused);
  // Also once every attempt of that link is used up.
  runFor(Seconds(40));
  keys.key = "the new key";
  manager->authenticateAnew();
  settle();
  EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::accepted);
  EXPECT_TRUE(peripheral()->isInitialized());
  EXPECT_EQ(watchdogs().size(), 1U) << "and the band is let go again";
}

// --- Lock and report ---

class LockTest : public RequestsTest {
 protected:
  std::optional<std::string> lockFile() const {
    return phone.fileManager.textAtPath(phone.systemInfo.lockFilePath);
  }
};

TEST_F(LockTest, LocksToTheFirstBandAndForgetsItAgain) {
  makeManager();
  settle();
  manager->lockToMac();
  EXPECT_EQ(manager->macToLock(), "");
  EXPECT_EQ(lockFile(), std::nullopt);

  runFor(Seconds(3));
  addBand("c8:0f:10:00:00:02");
  manager->lockToMac();
  EXPECT_EQ(manager->macToLock(), "c8:0f:10:aa:bb:0c");
  EXPECT_EQ(lockFile(), "c8:0f:10:aa:bb:0c");

  manager->disconnectMi();
  band->setIsInRange(false);
  settle();
  forgetRecords();
  manager->initialConnectionRequest([] {});
  runFor(Seconds(1));
  EXPECT_EQ(manager->count(), 1U) << "the other band is not taken";
  manager->removeLock();
  EXPECT_EQ(manager->macToLock(), "");
  EXPECT_EQ(lockFile(), std::nullopt);
  runFor(Seconds(1));
  EXPECT_EQ(manager->count(), 2U);
  EXPECT_EQ(watchdogs(), std::vector<long>{45});
}

TEST_F(LockTest, AFileThatCannotBeChangedIsAWarning) {
  connectBand();
  phone.fileManager.setWriteError(phone.systemInfo.lockFilePath, 30);
  manager->lockToMac();
  EXPECT_EQ(manager->macToLock(), "c8:0f:10:aa:bb:0c");
  manager->removeLock();
  ASSERT_GE(warnings().size(), 2U);
  EXPECT_TRUE(warnings()[0].starts_with("Could not write lock file: "));
  EXPECT_TRUE(warnings()[0].ends_with(" "));
  EXPECT_TRUE(warnings()[1].starts_with("Could not delete file: "));
  EXPECT_EQ(manager->macToLock(), "");
  EXPECT_TRUE(hasLog(LogLevel::warning, "Somebody is already connected. Found 1 peripheral(s)"))
      << "a band is looked for all the same";
}

TEST_F(LockTest, TheReportHasFiveEntriesAndABlankBehindEachBand) {
  const auto report = [&] {
    phone.distributedNotificationCenter.clearPostings();
    manager->sendPeripheralCapabilities();
    const auto postings =
        phone.distributedNotificationCenter.postings("org.corvale.wrixel2.capabilities");
    EXPECT_EQ(postings.size(), 1U);
    EXPECT_FALSE(postings.back().object);
    std::string text;
    for (const auto& [key, value] : postings.back().userInfo) {
      text += key + "=" + shown(value) + ";";
    }
    return text;
  };
  makeManager();
  settle();
  EXPECT_EQ(report(),
            "batteryStatus=;currentCalories=;currentDistance=;currentSteps=;"
            "isHealtKitSupported=true;");
  band->setDistance(2874);
  runFor(Seconds(3));
  EXPECT_EQ(report(),
            "batteryStatus=80% ;currentCalories=;currentDistance=;currentSteps=;"
            "isHealtKitSupported=true;")
      << "without steps the other counters are left out";
  band->setCalories(96);
  band->setSteps(4021);
  settle();
  EXPECT_EQ(report(),
            "batteryStatus=80% ;currentCalories=96 ;currentDistance=2874m ;currentSteps=4021 ;"
            "isHealtKitSupported=true;");
  peripheral()->setBatteryInfo(mbmodel::MBBatteryInfoModel());
  phone.healthStore.setIsHealthDataAvailable(false);
  EXPECT_EQ(report(),
            "batteryStatus=;currentCalories=96 ;currentDistance=2874m ;currentSteps=4021 ;"
            "isHealtKitSupported=false;");
  phone.healthStore.setIsHealthDataAvailable(true);
  manager->setState(SessionState::poweredOff);
  EXPECT_TRUE(report().ends_with("isHealtKitSupported=false;"));
}

TEST_F(LockTest, HealthDataNeedsVersionEight) {
  for (const auto& [version, isAvailable] :
       std::initializer_list<std::pair<const char*, bool>>{{"8.0", true},
                                                           {"7.9", false},
                                                           {"10.3.1", true},
                                                           {"9", true},
                                                           {"", false},
                                                           {"x", false}}) {
    phone.systemInfo.systemVersion = version;
    EXPECT_EQ(healthKit.isHealtKitAvailable(), isAvailable) << version;
  }
}

}  // namespace
}  // namespace wrixel2::mbble
