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

// --- What is dropped ---

TEST_F(RequestsTest, WithoutPowerRequestsAreOnlyLogged) {
  connectBand();
  phone.radio.setState(platform::CentralState::poweredOff);
  settle();
  forgetRecords();
  send(alert(1, 9, 4, "Anna"));
  manager->requestHeartRequestWithMode(2);
  manager->requestSteps();
  manager->syncClock();
  EXPECT_EQ(phone.log.messages("MBCentralManager"),
            (Lines{"Request for Alert vibration with mode Repeat 1 Icon 9 Pattern 4 Text: "
                   "<private> ...",
                   "Request for Heart Rate measurement with mode 2 ...",
                   "Request for Step measurement ...", "Request for Clock synchronisation ..."}));
  EXPECT_FALSE(manager->isNotificationActive() || manager->isHeartRateActive() ||
               manager->isStepsActive() || manager->isClockSyncActive());
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

// --- Alerts ---

TEST_F(RequestsTest, TheFirstAlertOfALinkWaitsASecond) {
  const struct {
    std::string_view what;
    std::uint64_t icon;
    bool isConnectedMode;
    bool needsParams;
    std::string_view first;
  } cases[] = {{"plain", 30, false, true, "1000 2a06 00"},
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
    const std::size_t params = test.needsParams ? 1 : 0;
    ASSERT_GT(writes().size(), params);
    EXPECT_EQ(writes().at(params), test.first);
    EXPECT_EQ(writes().front() == "0 " + kLowParams, test.needsParams);

    runFor(Seconds(5));
    forgetRecords();
    send(alert(1, test.icon));
    settle();
    EXPECT_FALSE(writes().empty()) << "the next one does not wait";
    runFor(Seconds(1));
    manager->connectedMode(false);
    disconnectBand();
    send(alert(1, 4));
    runFor(Milliseconds(999));
    EXPECT_EQ(writesTo("2a06"), Lines{}) << "the first one again";
  }
}

TEST_F(RequestsTest, AnIconIsFollowedByThePatternAndTheTextUnlessItIsAPlainOne) {
  connectBand();
  sendFirstAlert();
  const struct {
    std::uint64_t icon;
    std::optional<std::string> text;
    Lines writes;
  } cases[] = {
      {2, "Hello", {"0 2a46 fa01ff ack", "100 2a06 ff4b00dc0503", "2000 2a46 050148656c6c6f ack"}},
      {9, std::nullopt, {"0 2a46 050100 ack", "100 2a06 ff4b00dc0503"}},
      {29, "Hello", {"0 2a46 030148656c6c6f ack"}},
      // The plain ones stay raised until they are stopped.
      {1, "unseen", {"0 2a06 ff4b00dc0503"}},
      {4, "unseen", {"0 2a06 fe", "150 2a06 ff4b00dc0503"}},
      {26, "unseen", {"0 2a06 01", "150 2a06 ff4b00dc0503"}},
      {28, "unseen", {"0 2a06 02"}},
      {30, "unseen", {"0 2a06 00", "150 2a06 ff4b00dc0503"}}};
  for (const auto& test : cases) {
    SCOPED_TRACE(test.icon);
    const auto mode = alert(3, test.icon, 7, test.text);
    forgetRecords();
    send(mode);
    const bool isPlain = test.text == "unseen";
    EXPECT_EQ(manager->isNotificationActive(), isPlain) << "right after the call";
    runFor(Seconds(10));
    EXPECT_EQ(writes(), test.writes);
    const bool isFollowed = test.icon == 2 || test.icon == 9;
    EXPECT_EQ(mode->iconId(), isFollowed ? 1U : test.icon) << "the pattern goes without it";
  }

  // What the band refuses is not followed.
  forgetRecords();
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

  disconnectBand();
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

TEST_F(RequestsTest, StepsArePostedOnceAlsoWhereThereIsNoReading) {
  connectBand();
  band->setSteps(70000);
  settle();
  manager->requestSteps();
  settle();
  EXPECT_EQ(posted(kSteps, "steps"), Lines{"70000"});
  EXPECT_FALSE(manager->isStepsActive());

  phone.radio.timings.exchange = Seconds(1);
  manager->requestSteps();
  runFor(Milliseconds(500));
  band->drop(6);
  settle();
  EXPECT_EQ(posted(kSteps, "steps"), (Lines{"70000", "999999"}));
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
  disconnectBand();
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
  const struct {
    int zone;          ///< seconds east of GMT
    int quarterHours;  ///< the same, as the band has it
    int hour, minute;  ///< local, when it is started
    Seconds elapsed;
    std::string_view shown;
  } cases[] = {{0, 0, 12, 0, Seconds(83), "00:01:23"},
               {19800, 22, 12, 0, Seconds(83), "00:01:23"},
               {-10800, -12, 3, 30, Seconds(83), "00:01:23"},
               {50400, 56, 23, 0, Seconds(83), "00:01:23"},
               {3600, 4, 23, 59, Seconds(83), "00:01:23"},
               {3600, 4, 23, 59, Seconds(60), "00:01:00"},
               {-18000, -20, 20, 0, Seconds(23 * 3600 + 59 * 60 + 58), "23:59:58"}};
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
    EXPECT_EQ(band->currentTime()[10], static_cast<std::uint8_t>(test.quarterHours));
  }
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
  disconnectBand();
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
  disconnectBand();
  band->setIsInRange(false);
  manager->syncClock();
  runFor(Seconds(30));
  EXPECT_TRUE(manager->isClockSyncActive());
  band->setIsInRange(true);
  settle();
  ASSERT_EQ(writesTo("2a2b").size(), 1U);
  EXPECT_TRUE(writesTo("2a2b").front().starts_with(present()));

  // One that is not known yet is looked for.
  manager.reset();
  makeManager();
  settle();
  manager->syncClock();
  runFor(Milliseconds(100));
  ASSERT_EQ(writesTo("2a2b").size(), 1U);
  EXPECT_TRUE(writesTo("2a2b").front().starts_with(present()));
}

TEST_F(ClockSyncTest, IsMadeUpForAfterALostLinkUnlessEverythingIsGivenUp) {
  connectBand();
  phone.radio.timings.exchange = Seconds(1);
  manager->syncClock();
  runFor(Milliseconds(500));
  phone.radio.timings.exchange = Seconds(0);
  band->drop(6);
  settle();
  EXPECT_FALSE(manager->isClockSyncActive());
  EXPECT_EQ(writesTo("2a2b").size(), 1U);

  disconnectBand();
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

TEST_F(RequestsTest, WithoutALinkANewKeyIsTriedOnTheNextOne) {
  const std::pair<std::string_view, std::function<void()>> cases[] = {
      {"a band that was let go", [this] { disconnectBand(); }},
      {"no band known yet", [this] { makeManager(); }},
      {"no power", [this] { phone.radio.setState(platform::CentralState::poweredOff); }}};
  for (const auto& [what, begin] : cases) {
    SCOPED_TRACE(what);
    manager.reset();
    connectBand();
    begin();
    settle();
    manager->authenticateAnew();
    EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::none);
    phone.radio.setState(platform::CentralState::poweredOn);
    runFor(Seconds(3));
    EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::accepted);
  }
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
    constexpr std::string_view kName = "org.corvale.wrixel2.capabilities";
    phone.distributedNotificationCenter.clearPostings();
    manager->sendPeripheralCapabilities();
    const auto postings = phone.distributedNotificationCenter.postings(kName);
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
  const std::string none = "currentCalories=;currentDistance=;currentSteps=;";
  EXPECT_EQ(report(), "batteryStatus=;" + none + "isHealtKitSupported=true;");
  band->setDistance(2874);
  runFor(Seconds(3));
  EXPECT_EQ(report(), "batteryStatus=80% ;" + none + "isHealtKitSupported=true;")
      << "without steps the other counters are left out";
  band->setCalories(96);
  band->setSteps(4021);
  settle();
  const std::string counters = "currentCalories=96 ;currentDistance=2874m ;currentSteps=4021 ;";
  EXPECT_EQ(report(), "batteryStatus=80% ;" + counters + "isHealtKitSupported=true;");
  peripheral()->setBatteryInfo(mbmodel::MBBatteryInfoModel());
  phone.healthStore.setIsHealthDataAvailable(false);
  EXPECT_EQ(report(), "batteryStatus=;" + counters + "isHealtKitSupported=false;");
  phone.healthStore.setIsHealthDataAvailable(true);
  manager->setState(SessionState::poweredOff);
  EXPECT_TRUE(report().ends_with("isHealtKitSupported=false;"));
}

}  // namespace
}  // namespace wrixel2::mbble
