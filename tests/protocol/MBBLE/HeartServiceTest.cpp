#include "band/BandProfile.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/MBHeartService.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::Bytes;
using platform::LogLevel;
using Lines = std::vector<std::string>;

class HeartServiceTest : public SessionFixture {
 protected:
  HeartServiceTest() { connectBand(); }
  void measured(const Bytes& value) {
    phone.radio.injectNotification(*band, band::kHeartRateMeasurement, value);
    settle();
  }
  Lines written() const {
    Lines values;
    for (const auto& message : phone.messageCenters.sentMessages("writeHeartRate")) {
      EXPECT_EQ(message.center, "org.corvale.wrixel2Ipc");
      values.push_back(shown(message.userInfo.find("heartRate")->second));
    }
    return values;
  }
};

TEST_F(HeartServiceTest, OnlyModeTwoMeasuresContinuously) {
  for (const std::int64_t mode : {0, 1, 2, 3, -1}) {
    forgetRecords();
    peripheral()->heartService().doRequestHeartRate(mode, nullptr);
    settle();
    EXPECT_EQ(writes(), Lines{mode == 2 ? "0 2a39 150101" : "0 2a39 150201"}) << mode;
  }
}

TEST_F(HeartServiceTest, AReadingIsHandedOnAndEndsTheRequest) {
  manager->requestHeartRequestWithMode(0);
  settle();
  EXPECT_TRUE(manager->isHeartRateActive() && manager->isHeartRateRequested());
  forgetRecords();
  runFor(Seconds(8));
  EXPECT_FALSE(manager->isHeartRateActive() || manager->isHeartRateRequested());
  EXPECT_EQ(phone.log.messages("MBHeartService"), Lines{"Heart rate: 72"});
  EXPECT_TRUE(hasLog(LogLevel::info, "Request for Alert vibration with mode (null) ..."));
  EXPECT_EQ(written(), Lines{"72"});
  EXPECT_EQ(posted("org.corvale.wrixel2.measure", "heartRate"), Lines{"72"});
}

TEST_F(HeartServiceTest, AZeroIsMeasuredAgainOnce) {
  band->setHeartRate(0);
  manager->requestHeartRequestWithMode(0);
  runFor(Seconds(8));
  EXPECT_TRUE(peripheral()->heartService().isRetryActive());
  runFor(Milliseconds(4999));
  EXPECT_EQ(writesTo("2a39").size(), 1U);
  runFor(Milliseconds(1));
  EXPECT_EQ(writesTo("2a39").size(), 2U);
  runFor(Seconds(8));
  EXPECT_FALSE(peripheral()->heartService().isRetryActive());
  runFor(Seconds(6));
  EXPECT_EQ(writesTo("2a39").size(), 2U) << "the second zero is accepted";
  EXPECT_EQ(written(), (Lines{"0", "0"}));
  EXPECT_EQ(posted("org.corvale.wrixel2.measure", "heartRate"), (Lines{"0", "0"}));

  measured({0, 0});
  EXPECT_TRUE(peripheral()->heartService().isRetryActive());
  measured({0, 72});
  EXPECT_FALSE(peripheral()->heartService().isRetryActive());
}

TEST_F(HeartServiceTest, FaultyDataStillEndsTheRequest) {
  manager->setHeartRateActive(true);
  manager->setHeartRateRequested(true);
  forgetRecords();
  measured({0, 72, 0});
  EXPECT_EQ(warnings(), Lines{"WARN: Faulty HR data for heartNotify len 3"});
  EXPECT_FALSE(manager->isHeartRateActive() || manager->isHeartRateRequested());
  EXPECT_EQ(written(), Lines{});

  auto& service = peripheral()->heartService();
  const auto control = service[mbservices::MB_CHAR_HEART_CONTROL];
  manager->setHeartRateActive(true);
  forgetRecords();
  control->setValue(std::nullopt);
  service.notifyCharacteristicHandler(control, std::nullopt);
  control->setValue(Bytes{0, 72});
  service.notifyCharacteristicHandler(control, platform::Error{6, "gone"});
  service.notifyCharacteristicHandler(control, std::nullopt);
  EXPECT_EQ(warnings(), (Lines{"Error during notify handling. (null)",
                               "Error during notify handling. gone (code 6)",
                               "WARN: No notify handler or faulty data for heartControl"}));
  EXPECT_TRUE(manager->isHeartRateActive());
}

}  // namespace
}  // namespace wrixel2::mbble
