#include "band/BandRecorder.h"
#include "protocol/MBBLE/MiBand.h"
#include "tests/protocol/MBBLE/SessionFixture.h"

namespace wrixel2::mbble {
namespace {

using platform::LogLevel;
using Lines = std::vector<std::string>;

class MiBandTest : public SessionFixture {
 protected:
  void SetUp() override {
    makeManager();
    mi = std::make_unique<MiBand>(phone.handle(), manager);
  }

  std::unique_ptr<MiBand> mi;
};

TEST_F(MiBandTest, ANotificationReachesTheWearer) {
  runFor(Seconds(3));
  // Let go of in the meantime.
  mi->disconnectMi();
  settle();
  forgetRecords();
  const band::BandRecorder recorder(*band);
  mi->notifyMiWithRepeat(3, 2, 7, "Anna: see you at six");
  runFor(Seconds(5));
  using Display = band::BandRecorder::Display;
  EXPECT_EQ(recorder.displays(),
            (std::vector<Display>{{"", {0xFA, 0x01, 0xFF}}, {"Anna: see you at s", {0x05, 0x01}}}));
  EXPECT_EQ(recorder.vibrations(), (std::vector<band::BandRecorder::Vibration>{{75, 1500, 3}}));
  ASSERT_EQ(writes().size(), 7U);
  EXPECT_EQ(writes()[0], "0 00000009 0200");
  EXPECT_TRUE(writes()[1].starts_with("0 00000009 0300")) << "the random number, encrypted";
  EXPECT_EQ(Lines(writes().begin() + 2, writes().end()),
            (Lines{"0 2a04 270031000000f401",  // the alert's
                   "0 2a04 270031000000f401",  // the set-up's
                   "1000 2a46 fa01ff ack", "1100 2a06 ff4b00dc0503",
                   "3000 2a46 0501416e6e613a2073656520796f752061742073 ack"}));
  // Twenty seconds after the connection it is over, and nothing is left to wake the phone.
  EXPECT_EQ(band->link(), band::BandLink::authenticated);
  runFor(Seconds(15));
  EXPECT_EQ(band->link(), band::BandLink::disconnected);
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

TEST_F(MiBandTest, IconZeroIsTheSwitchOfAnApp) {
  EXPECT_EQ(mi->mode()->iconId(), 9U);
  runFor(Seconds(3));
  forgetRecords();
  mi->notifyMiWithRepeat(1, 0, 3, "text");
  runFor(Seconds(5));
  EXPECT_EQ(mi->mode()->iconId(), 9U);
  EXPECT_TRUE(phone.log.lines().empty());
  EXPECT_EQ(writes(), Lines{});
  mi->notifyMiWithRepeat(2, 28, 3, std::nullopt);
  EXPECT_EQ(mi->mode()->repeat(), 2U);
  EXPECT_EQ(mi->mode()->pattern(), 3U);
}

TEST_F(MiBandTest, HandsEveryRequestToTheManager) {
  mi->scanForMi();
  EXPECT_EQ(manager->state(), SessionState::scanning);
  runFor(Seconds(3));
  mi->sendHeartRequestWithMode(2);
  mi->connectedMode(true);
  mi->lockToMac();
  mi->setDateTime(phone.clock.now());
  mi->requestSteps();
  EXPECT_TRUE(manager->isHeartRateActive() && manager->isConnectedMode());
  EXPECT_TRUE(manager->isSetTimeActive() && manager->isStepsActive());
  EXPECT_EQ(manager->macToLock(), peripheral()->mac());
  settle();
  ASSERT_FALSE(band->setBatteryLevel(12));
  mi->getBatteryInfo();
  mi->stopVibration();
  mi->removeLock();
  settle();
  EXPECT_EQ(peripheral()->batteryInfo()->level(), 12U);
  EXPECT_EQ(writesTo("2a06"), Lines{"00"});
  EXPECT_EQ(manager->macToLock(), "");
  forgetRecords();
  mi->pairMi();
  mi->requestHkAuthorization();
  settle();
  EXPECT_EQ(writes(), Lines{});
  mi->authenticateAnew();
  EXPECT_EQ(manager->authVerdict(), mbservices::AuthVerdict::none);
}

TEST_F(MiBandTest, OneWatchdogRunsAndNoneOutlivesItsOwner) {
  runFor(Seconds(3));
  mi->connectedMode(true);
  mi->kickWatchdogWithTime(10);
  mi->kickWatchdogWithTime(20);
  runFor(Milliseconds(19999));
  EXPECT_TRUE(peripheral()->isConnected());
  runFor(Milliseconds(1));
  EXPECT_FALSE(peripheral()->isConnected());
  manager->doConnectWithPeripheral(peripheral());
  settle();
  mi->kickWatchdogWithTime(10);
  mi.reset();
  runFor(Seconds(30));
  EXPECT_TRUE(peripheral()->isConnected());
}

TEST(SharedManagerTest, IsMadeOnce) {
  // The process's manager lives as long as the process, and so does what it runs on.
  static platform::simulated::SimulatedPlatform& phone =
      *new platform::simulated::SimulatedPlatform();
  static FakeKeyProvider& keys = *new FakeKeyProvider();
  EXPECT_EQ(MBCentralManager::sharedManager(phone.handle()), nullptr);
  EXPECT_EQ(
      phone.log.count(LogLevel::error, "ERROR: must call initSharedServiceWithDelegate: first."),
      1U);
  {
    const MiBand one(phone.handle(), keys);
    const MiBand other(phone.handle(), keys);
    EXPECT_EQ(one.manager(), MBCentralManager::sharedManager(phone.handle()));
    EXPECT_EQ(one.manager(), other.manager());
    EXPECT_EQ(one.manager()->delegate().get(), &one);
  }
  EXPECT_EQ(MBCentralManager::sharedManager(phone.handle())->delegate(), nullptr);
  EXPECT_TRUE(MBHealthKitManager::sharedManager(phone.handle()).isHealtKitAvailable());
  EXPECT_EQ(phone.log.messages(LogLevel::error).size(), 1U);
}

}  // namespace
}  // namespace wrixel2::mbble
