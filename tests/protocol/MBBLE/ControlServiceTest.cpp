#include "band/BandProfile.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/MBControlService.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBModel/MBLEParamsModel.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::Bytes;
using platform::ErrorOrNone;
using platform::LogLevel;
using Lines = std::vector<std::string>;

constexpr std::string_view kLowParams = "270031000000f401";

class ControlServiceTest : public SessionFixture {
 protected:
  ControlServiceTest() { connectBand(); }
  mbservices::MBControlService& service() { return peripheral()->controlService(); }
  void notify(std::string_view key, const std::optional<Bytes>& value) {
    const auto characteristic = service()[key];
    characteristic->setValue(value);
    service().notifyCharacteristicHandler(characteristic, std::nullopt);
    settle();
  }
};

TEST_F(ControlServiceTest, LinkParametersAndTheMarkThatTheyAreMissing) {
  service().writeHighLEParams();
  service().writeLowLEParams();
  service().writeHrLEParams();
  settle();
  EXPECT_EQ(writesTo("2a04"),
            (Lines{"cc01f4010000f401", std::string(kLowParams), "190028000000f401"}));

  forgetRecords();
  ASSERT_TRUE(peripheral()->shouldUpdateLEParams());
  int calls = 0;
  for (int i = 0; i < 2; ++i) {
    service().checkAndSetLowLEParamsWithBlock([&, i] {
      ++calls;
      EXPECT_EQ(peripheral()->shouldUpdateLEParams(), i == 0) << "cleared after the call";
    });
  }
  settle();
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(writesTo("2a04"), Lines{std::string(kLowParams)}) << "written once";
}

TEST_F(ControlServiceTest, LinkParametersAreRead) {
  // While they notify, a read's answer goes to the handler of notifications.
  service()[mbservices::MB_CHAR_CONN_PARAMS]->setNotifyValue(false, nullptr);
  settle();
  std::vector<std::string> answers;
  const auto keep = [&](const auto& params, const ErrorOrNone& error) {
    answers.push_back(params ? params->description() : platform::description(error));
  };
  service().readLEParamsWithBlock(keep);
  settle();
  phone.radio.failNext(platform::simulated::RadioOperation::read, {5, "no"});
  service().readLEParamsWithBlock(keep);
  settle();
  EXPECT_EQ(answers, (Lines{"connIntMin = 48(39) ms, connIntMax = 61(49) ms, latency = 0 ms, "
                            "timeout = 5000(500) ms",
                            "no (code 5)"}));
}

TEST_F(ControlServiceTest, ASlowLinkIsChangedAtOnceOrBeforeTheNextAlert) {
  const struct {
    std::uint8_t interval;  ///< in units of 1.25 ms
    bool isConnectedMode;
    bool isWritten;
    bool isMarked;
  } cases[] = {{50, false, false, false},
               {50, true, false, false},
               {51, false, false, true},
               {51, true, true, false}};
  for (const auto& test : cases) {
    SCOPED_TRACE(int{test.interval});
    SCOPED_TRACE(test.isConnectedMode);
    manager->connectedMode(test.isConnectedMode);
    peripheral()->setShouldUpdateLEParams(false);
    forgetRecords();
    notify(mbservices::MB_CHAR_CONN_PARAMS, Bytes{test.interval, 0, 0x40, 0, 0, 0, 0xF4, 1});
    EXPECT_EQ(writesTo("2a04").size(), test.isWritten ? 1U : 0U);
    EXPECT_EQ(peripheral()->shouldUpdateLEParams(), test.isMarked);
  }
  forgetRecords();
  notify(mbservices::MB_CHAR_CONN_PARAMS, std::nullopt);
  EXPECT_EQ(warnings(), Lines{"Received null value!"});
}

TEST_F(ControlServiceTest, NotificationsGoWhereTheyBelong) {
  forgetRecords();
  band->setSteps(10000);
  settle();
  EXPECT_EQ(peripheral()->activity()->steps(), 10000U);
  EXPECT_EQ(phone.distributedNotificationCenter.postings("org.corvale.wrixel2.capabilities").size(),
            1U);

  ASSERT_EQ(peripheral()->batteryInfo()->level(), 80U);
  forgetRecords();
  ASSERT_FALSE(band->setBatteryLevel(33));
  settle();
  EXPECT_EQ(peripheral()->batteryInfo()->level(), 80U) << "only a reading asked for is kept";
  EXPECT_EQ(phone.distributedNotificationCenter.postings("org.corvale.wrixel2.capabilities").size(),
            1U);

  band->pressButton();
  settle();
  const auto pressed = phone.messageCenters.sentMessages("buttonPressed");
  ASSERT_EQ(pressed.size(), 1U);
  EXPECT_EQ(pressed[0].center, "org.corvale.wrixel2Ipc");
  EXPECT_TRUE(pressed[0].userInfo.empty());

  forgetRecords();
  notify(mbservices::MB_CHAR_UNK_1, Bytes{1, 2});
  service().notifyCharacteristicHandler(service()[mbservices::MB_CHAR_STEPS],
                                        platform::Error{6, "gone"});
  service().notifyCharacteristicHandler(nullptr, std::nullopt);
  EXPECT_EQ(warnings(), (Lines{"WARN: No notify handler for unk1 = <0102>",
                               "Error during notify handling. Err: gone (code 6), char "
                               "realtimeSteps",
                               "Error during notify handling. Err: (null), char (null)"}));
}

TEST_F(ControlServiceTest, ANewReadTakesThePlaceOfTheOneBefore) {
  int answers = 0;
  const auto never = [](const auto&, const auto&) { FAIL(); };
  service().readReatimeStepsWithBlock(never);
  service().readReatimeStepsWithBlock([&](const auto& activity, const ErrorOrNone& error) {
    EXPECT_TRUE(activity && !error);
    ++answers;
  });
  service().readBatteryInfoWithBlock(never);
  service().readBatteryInfoWithBlock([&](const auto& info, const ErrorOrNone&) {
    EXPECT_EQ(info->level(), 80U);
    ++answers;
  });
  service().readTimetWithBlock(never);
  service().readTimetWithBlock([&](const auto& date, const ErrorOrNone&) {
    EXPECT_EQ(date, phone.clock.now());
    ++answers;
  });
  settle();
  band->setSteps(1);
  ASSERT_FALSE(band->setBatteryLevel(1));
  settle();
  EXPECT_EQ(answers, 3);
}

TEST_F(ControlServiceTest, TimeGoesOutInTheLocalZoneAndErrorsComeBack) {
  phone.timeZone.setSecondsFromGMT(5 * 3600 + 1800);
  service().writeTime(phone.clock.now(), [](const ErrorOrNone& error) { EXPECT_FALSE(error); });
  settle();
  // 2026-03-02, a Monday (2), 17:30:03 at +5:30 (22 quarter hours).
  EXPECT_EQ(writesTo("2a2b"), Lines{"ea070302111e0302000016 ack"});

  phone.radio.failNext(platform::simulated::RadioOperation::read, {5, "no"}, band::kCurrentTime);
  bool isCalled = false;
  service().readTimetWithBlock([&](const auto& date, const ErrorOrNone& error) {
    EXPECT_FALSE(date);
    EXPECT_EQ(error->code, 5);
    isCalled = true;
  });
  settle();
  EXPECT_TRUE(isCalled);
}

}  // namespace
}  // namespace wrixel2::mbble
