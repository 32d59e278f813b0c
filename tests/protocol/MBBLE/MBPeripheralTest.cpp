#include "band/BandProfile.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/MBAlertService.h"
#include "protocol/MBBLE/Services/MBAncsAlertService.h"
#include "protocol/MBBLE/Services/MBAuthService.h"
#include "protocol/MBBLE/Services/MBControlService.h"
#include "protocol/MBBLE/Services/MBHeartService.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::LogLevel;
using platform::simulated::RadioOperation;
using Lines = std::vector<std::string>;

class MBPeripheralTest : public SessionFixture {};

TEST_F(MBPeripheralTest, HasTheBandsServicesAndCharacteristics) {
  connectBand();
  Lines table;
  for (const auto& [key, service] : peripheral()->serviceDict()) {
    std::string line = key + " " + service->uuid().text() + ":";
    for (const auto& [name, characteristic] : service->characteristicDict()) {
      line += " " + name + " " + characteristic->uuid().text().substr(0, 8);
    }
    table.push_back(line);
    EXPECT_TRUE(service->isEnabled()) << key;
  }
  EXPECT_EQ(table, (Lines{"miAlert 1802: alertCh 2a06",
                          "miAncsAlert 1811: ancsAlControlCh 2a44 ancsAlertCh 2a46",
                          "miAuth fee1: authInfo 00000009",
                          "miControl fee0: batteryInfo 00000006 btnPress 00000010 "
                          "configData 00000008 connParams 2a04 realtimeSteps 00000007 timeSet 2a2b "
                          "unk1 00000001 unk2 00000002 unk3 00000003 unk4 00000004 unk5 00000004",
                          "miHeart 180d: heartControl 2a39 heartNotify 2a37"}));
  EXPECT_EQ(peripheral()->description(), "Name=MI Band 2 MAC=c8:0f:10:aa:bb:0c");
}

TEST_F(MBPeripheralTest, IsSetUpInOrderOnceTheBandAcceptsTheKey) {
  band->setSteps(4021);
  phone.radio.timings.exchange = Milliseconds(10);
  int refused = 1;
  band->refuseAuthentication(1);
  keys.onRequest = [&] {
    EXPECT_FALSE(peripheral()->controlService().isEnabled()) << "nothing else before the verdict";
    --refused;
  };
  makeManager();
  runFor(Seconds(6));
  EXPECT_EQ(refused, 0);
  EXPECT_FALSE(peripheral()->isInitialized());
  EXPECT_EQ(writesTo("2a04"), Lines{});
  runFor(Seconds(2));
  EXPECT_TRUE(peripheral()->isInitialized());
  EXPECT_EQ(peripheral()->batteryInfo()->level(), 80U);
  EXPECT_EQ(peripheral()->activity()->steps(), 4021U);
  EXPECT_EQ(writesTo("2a04"), Lines{"270031000000f401"});
  // Each of the two first readings is reported by its handler and by the set-up.
  EXPECT_EQ(posted("org.corvale.wrixel2.capabilities", "batteryStatus"),
            (Lines{"", "", "80% ", "80% "}));
}

TEST_F(MBPeripheralTest, EachStagesFailureIsNamedAndHandedOn) {
  using Op = RadioOperation;
  const struct {
    Op operation;
    std::optional<platform::UUID> on;
    std::string_view message;
    /// The band is used all the same: what fails late is not waited for.
    bool isInitialized = false;
  } stages[] = {
      {Op::discoverServices, std::nullopt, "discoverServices error:"},
      {Op::discoverCharacteristics, band::kAuthService, "auth discoverCharacteristics error:"},
      {Op::setNotify, band::kAuthInfo, "auth notifyAuthSet error:"},
      {Op::discoverCharacteristics, band::kControlService, "ctrl discoverCharacteristics error:"},
      {Op::discoverCharacteristics, band::kAlertNotificationService,
       "ancs discoverCharacteristics error."},
      {Op::discoverCharacteristics, band::kImmediateAlertService, "discoverCharacteristics error."},
      {Op::discoverCharacteristics, band::kHeartRateService,
       "heart discoverCharacteristics error."},
      {Op::setNotify, band::kBatteryInfo, "ctrl setNotifyValue error.", true},
      {Op::setNotify, band::kConnectionParameters, "ctrl setNotifyValue error.", true},
      {Op::setNotify, band::kHeartRateMeasurement, "heart notifyHeartSet error.", true}};
  for (const auto& stage : stages) {
    SCOPED_TRACE(stage.message);
    manager.reset();
    phone.radio.failNext(stage.operation, {42, "no"}, stage.on);
    makeManager();
    runFor(Seconds(3));
    EXPECT_EQ(countOfLog(LogLevel::warning, std::string(stage.message) + " no (code 42)"), 1U);
    EXPECT_EQ(peripheral()->isInitialized(), stage.isInitialized);
    EXPECT_EQ(countOfLog(LogLevel::error, "Error connecting to peripheral. no (code 42)"),
              stage.isInitialized ? 0U : 1U);
    EXPECT_EQ(manager->state(), stage.isInitialized ? SessionState::connected : SessionState::idle);
    disconnectBand();
  }

  phone.radio.failNextConnect({10, "radio"});
  manager->doConnectWithPeripheral(peripheral());
  settle();
  EXPECT_EQ(phone.log.messages(LogLevel::error),
            (Lines{"Error connecting to peripheral. radio (code 10)",
                   "Failed to connect :( radio (code 10)"}));
  EXPECT_EQ(manager->state(), SessionState::idle);

  // Several failures are handed on once.
  keys.onRequest = [&] {
    for (long code = 1; code <= 4; ++code) {
      phone.radio.failNext(RadioOperation::discoverCharacteristics, {code, "no"});
    }
  };
  forgetRecords();
  manager->doConnectWithPeripheral(peripheral());
  settle();
  EXPECT_EQ(phone.log.messages("MBPeripheral"),
            (Lines{"ctrl discoverCharacteristics error: no (code 1)",
                   "ancs discoverCharacteristics error. no (code 2)",
                   "discoverCharacteristics error. no (code 3)",
                   "heart discoverCharacteristics error. no (code 4)"}));
  EXPECT_EQ(phone.log.messages(LogLevel::error),
            Lines{"Error connecting to peripheral. no (code 1)"});
}

TEST_F(MBPeripheralTest, ALinkLostAtAnyPointOfTheSetUpIsMadeAnew) {
  // Sixteen exchanges until the battery is known; a band that is lost later is not missed.
  for (unsigned operation = 1; operation <= 16; ++operation) {
    SCOPED_TRACE(operation);
    manager.reset();
    phone.radio.dropAtOperation(*band, operation, 6);
    makeManager();
    runFor(Seconds(4));
    EXPECT_TRUE(peripheral()->isInitialized());
    EXPECT_TRUE(peripheral()->batteryInfo());
    EXPECT_EQ(manager->state(), SessionState::connected);
    disconnectBand();
  }
}

TEST_F(MBPeripheralTest, ARequestForStepsDuringTheSetUpIsNotLost) {
  connectBand();
  manager->disconnectMi();
  band->setSteps(1234);
  phone.radio.timings = {};
  settle();
  forgetRecords();
  manager->requestSteps();
  runFor(Seconds(5));
  EXPECT_EQ(posted("org.corvale.wrixel2.steps", "steps"), Lines{"1234"});
  EXPECT_FALSE(manager->isStepsActive());
  EXPECT_EQ(peripheral()->activity()->steps(), 1234U);
}

TEST_F(MBPeripheralTest, AnUnlockedPhoneIsNothingToTheBand) {
  connectBand();
  phone.distributedNotificationCenter.postFromOutside(
      {"org.corvale.wrixel2.devUnlocked", std::nullopt, {}});
  settle();
  EXPECT_EQ(writes(), Lines{});
  EXPECT_TRUE(phone.log.lines().empty());
}

}  // namespace
}  // namespace wrixel2::mbble
