#include <algorithm>
#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "band/BandRecorder.h"
#include "band/VirtualBand.h"
#include "tests/daemon/DaemonHarness.h"

namespace wrixel2::daemon {
namespace {

using platform::Value;
using namespace std::chrono_literals;

/// A controller with a band within reach.
class EndToEndTest : public DaemonHarness {
 protected:
  EndToEndTest() {
    keyProvider.key = band->pairingKey();
    system.radio.addBand(band);
  }

  bool runUntilShown(const std::string& text) {
    return system.runLoop.runUntil(
        [&] {
          return std::any_of(recorder.displays().begin(), recorder.displays().end(),
                             [&](const auto& display) { return display.text == text; });
        },
        30s);
  }

  std::shared_ptr<band::VirtualBand> band = std::make_shared<band::VirtualBand>(platform());
  band::BandRecorder recorder{*band};
};

TEST_F(EndToEndTest, ANotificationReachesTheBandsScreenAndMotor) {
  startService({{"MBIcon-org.example.Chat", 9},
                {"MBPattern-org.example.Chat", 4},
                {"MBPreview-org.example.Chat", true}});
  send("bulletinRequest", {{"sectionID", "org.example.Chat"},
                           {"title", "Anna"},
                           {"message", "See you at six"},
                           {"sender", "Anna"}});
  ASSERT_TRUE(runUntilShown("Anna:See you at si"));
  EXPECT_EQ(recorder.displays().front().icon, (platform::Bytes{0x05, 0x01}));
  EXPECT_TRUE(system.runLoop.runUntil([this] { return !recorder.vibrations().empty(); }, 5s));

  // Its job done, the daemon lets go of the band.
  EXPECT_TRUE(system.runLoop.runUntil(
      [this] { return band->link() == band::BandLink::disconnected; }, 60s));
}

TEST_F(EndToEndTest, ACallIsShownAndTheStatusTellsOfTheBand) {
  startService();
  send("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  ASSERT_TRUE(runUntilShown("Anna"));
  const auto property = [this](const char* name) {
    return system.objectExporter.property("/org/corvale/wrixel2dIpc", name).value();
  };
  system.runLoop.runFor(5s);
  EXPECT_EQ(property("State"), Value("connected"));
  EXPECT_EQ(property("Band"), Value(std::string(band->address())));
  EXPECT_EQ(property("Initialized"), Value(true));
  EXPECT_EQ(property("Battery"), Value(80));

  wrixel2d->endLinks();
  system.runLoop.runFor(1s);
  EXPECT_EQ(band->link(), band::BandLink::disconnected);
  EXPECT_EQ(property("State"), Value("idle"));
}

TEST_F(EndToEndTest, TheUserAsksForTheHeartRateAndIsShownIt) {
  band->setHeartRate(72);
  startService();
  postPreference("/measure");
  EXPECT_TRUE(system.runLoop.runUntil([this] { return !userAlerts().empty(); }, 60s));
  EXPECT_EQ(userAlerts(), UserAlerts{"Heart Rate|Your Heart Rate: 72"});
  EXPECT_EQ(system.messageCenters.sentMessages("writeHeartRate").size(), 1U);
}

TEST_F(EndToEndTest, WhoDoesNotMoveIsReminded) {
  band->setSteps(1000);
  startService({{"moveEnabled", true}});
  system.runLoop.runFor(1min);
  EXPECT_EQ(requests("Received steps 1000, old steps 999998"), 1U);
  band->setSteps(1004);
  recorder.clear();
  system.runLoop.runFor(1h);
  EXPECT_EQ(requests("Delta steps 4"), 1U);
  EXPECT_FALSE(recorder.vibrations().empty());
}

TEST_F(EndToEndTest, TheStopwatchRunsOnTheBandsClock) {
  // West of GMT, where the day is not the same.
  system.timeZone.setSecondsFromGMT(-3 * 3600);
  system.clock.setWallClock(std::chrono::sys_days(std::chrono::year(2026) / 3 / 3) + 1h);
  startService({{"connectedMode", 1}, {"stopwatchSwitch", true}});
  ASSERT_TRUE(system.runLoop.runUntil(
      [this] { return band->link() == band::BandLink::authenticated; }, 30s));
  system.runLoop.runFor(5s);
  forget();
  postPreference("/stopwatchChanged");
  system.runLoop.runFor(1s);
  const auto bandTime = [this] {
    const auto bytes = band->currentTime();  // year (2), month, day, hour, minute, ...
    return std::vector<int>(bytes.begin() + 2, bytes.begin() + 6);
  };
  EXPECT_EQ(userAlerts(), UserAlerts{"Stopwatch started|Let's start!"});
  EXPECT_EQ(bandTime(), (std::vector{3, 2, 0, 0}));

  system.runLoop.runFor(90s);
  forget();
  change("stopwatchSwitch", false, "/stopwatchChanged");
  system.runLoop.runFor(1s);
  EXPECT_EQ(userAlerts(), UserAlerts{"Stopwatch stopped|00:01:31"});
  EXPECT_EQ(bandTime(), (std::vector{3, 2, 22, 1}));
}

TEST_F(EndToEndTest, TheBandFollowsThePhoneToAnotherZoneUnlessItIsAStopwatch) {
  startService({{"connectedMode", 1}});
  ASSERT_TRUE(system.runLoop.runUntil(
      [this] { return band->link() == band::BandLink::authenticated; }, 30s));
  system.runLoop.runFor(5s);
  const auto travel = [this](int secondsFromGMT) {
    system.timeZone.setSecondsFromGMT(secondsFromGMT);
    system.runLoop.localTimeChanged();
    system.runLoop.runFor(1s);
    return int{band->currentTime()[4]};
  };
  EXPECT_EQ(travel(3 * 3600), 15);
  EXPECT_EQ(userAlerts(), UserAlerts{}) << "it is no stopwatch that ends";
  change("stopwatchSwitch", true, "/stopwatchChanged");
  system.runLoop.runFor(1s);
  EXPECT_EQ(travel(-3 * 3600), 0);
}

TEST_F(EndToEndTest, TheStatusSaysWhatIsMissingAndWhetherTheKeyIsAccepted) {
  const auto property = [this](const char* name) {
    const auto value = system.objectExporter.property("/org/corvale/wrixel2dIpc", name);
    return value && value->text() ? *value->text() : "(none)";
  };
  start();
  run();
  EXPECT_NE(property("Problem").find("wrixel2-companion"), std::string::npos);
  send("letUsStart");
  run();
  EXPECT_EQ(property("Problem"), "");
  system.runLoop.runFor(30s);
  EXPECT_EQ(property("Authentication"), "accepted");
  change("enabled", false, "");
  run();
  EXPECT_NE(property("Problem").find("enabled = false"), std::string::npos);
}

TEST_F(EndToEndTest, TheLockedBandIsToldInTheStatus) {
  startService({{"connectedMode", 1}});
  ASSERT_TRUE(system.runLoop.runUntil(
      [this] { return band->link() == band::BandLink::authenticated; }, 30s));
  post("org.corvale.wrixel2.lockToCurrentBand");
  run();
  EXPECT_EQ(system.fileManager.textAtPath(system.systemInfo.lockFilePath), band->address());
  EXPECT_EQ(system.objectExporter.property("/org/corvale/wrixel2dIpc", "LockedTo"),
            Value(std::string(band->address())));
  post("org.corvale.wrixel2.removeLock");
  run();
  EXPECT_FALSE(system.fileManager.fileExistsAtPath(system.systemInfo.lockFilePath));
}

}  // namespace
}  // namespace wrixel2::daemon
