#include <algorithm>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>

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

  bool runUntil(const std::function<bool()>& condition) {
    return system.runLoop.runUntil(condition, 60s);
  }
  void expectShown(const std::string& text) {
    EXPECT_TRUE(runUntil([&] {
      return std::ranges::any_of(recorder.displays(),
                                 [&](const auto& display) { return display.text == text; });
    })) << text;
  }
  /// With a link that stays.
  void startConnected(platform::Dictionary settings = {}) {
    settings.emplace("connectedMode", 1);
    startService(std::move(settings));
    ASSERT_TRUE(runUntil([this] { return band->link() == band::BandLink::authenticated; }));
    system.runLoop.runFor(5s);
    forget();
  }
  std::string text(const char* name) const { return *property(name).text(); }

  std::shared_ptr<band::VirtualBand> band = std::make_shared<band::VirtualBand>(platform());
  band::BandRecorder recorder{*band};
};

TEST_F(EndToEndTest, WhatReachesTheBandIsToldInTheStatusAndThenItIsLetGo) {
  startService({{"MBIcon-org.example.Chat", 9},
                {"MBPattern-org.example.Chat", 4},
                {"MBPreview-org.example.Chat", true}});
  bulletin({{"sectionID", "org.example.Chat"}, {"title", "Anna"}, {"message", "See you at six"}});
  expectShown("Anna:See you at si");
  EXPECT_EQ(recorder.displays().front().icon, (platform::Bytes{0x05, 0x01}));
  EXPECT_TRUE(runUntil([this] { return !recorder.vibrations().empty(); }));
  EXPECT_TRUE(runUntil([this] { return band->link() == band::BandLink::disconnected; }));
  system.runLoop.runFor(1s);

  send("phoneCall", {{"newCall", true}, {"text", "Anna"}});
  expectShown("Anna");
  system.runLoop.runFor(5s);
  EXPECT_EQ(text("State"), "connected");
  EXPECT_EQ(text("Band"), band->address());
  EXPECT_EQ(property("Initialized"), Value(true));
  EXPECT_EQ(property("Battery"), Value(80));
  EXPECT_EQ(text("Authentication"), "accepted");

  wrixel2d->endLinks();
  system.runLoop.runFor(1s);
  EXPECT_EQ(band->link(), band::BandLink::disconnected);
  EXPECT_EQ(text("State"), "idle");
}

TEST_F(EndToEndTest, AKeyThatTheBandRefusesIsToldUntilItIsReplaced) {
  keyProvider.key = std::string(32, '0');
  startService({{"connectedMode", 1}});
  EXPECT_TRUE(runUntil([this] { return text("Authentication") == "refused"; }));
  keyProvider.key = band->pairingKey();
  post("org.corvale.wrixel2.keyChanged");
  EXPECT_TRUE(runUntil([this] { return text("Authentication") == "accepted"; }));
}

TEST_F(EndToEndTest, TheStopwatchRunsOnTheBandsClock) {
  // West of GMT, where the day is not the same.
  system.timeZone.setSecondsFromGMT(-3 * 3600);
  system.clock.setWallClock(std::chrono::sys_days(std::chrono::year(2026) / 3 / 3) + 1h);
  startConnected({{"stopwatchSwitch", true}});
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
  startConnected();
  const auto travel = [this](int secondsFromGMT) {
    system.timeZone.setSecondsFromGMT(secondsFromGMT);
    system.runLoop.localTimeChanged();
    system.runLoop.runFor(1s);
    const auto bytes = band->currentTime();  // ..., hour, ..., zone in quarter hours
    return std::pair(int{bytes[4]}, static_cast<std::int8_t>(bytes[10]) + 0);
  };
  EXPECT_EQ(travel(-(3 * 3600 + 1800)), std::pair(8, -14));
  EXPECT_EQ(travel(5 * 3600 + 2700), std::pair(17, 23));
  EXPECT_EQ(userAlerts(), UserAlerts{}) << "it is no stopwatch that ends";
  change("stopwatchSwitch", true, "/stopwatchChanged");
  system.runLoop.runFor(1s);
  EXPECT_EQ(travel(-3 * 3600), std::pair(0, 23));
}

TEST_F(EndToEndTest, TheStatusSaysWhatIsMissingAndWhichBandItIsLockedTo) {
  start();
  run();
  EXPECT_NE(text("Problem").find("wrixel2-companion"), std::string::npos);
  startConnected();
  EXPECT_EQ(text("Problem"), "");
  post("org.corvale.wrixel2.lockToCurrentBand");
  run();
  EXPECT_EQ(system.fileManager.textAtPath(system.systemInfo.lockFilePath), band->address());
  EXPECT_EQ(text("LockedTo"), band->address());
  post("org.corvale.wrixel2.removeLock");
  run();
  EXPECT_FALSE(system.fileManager.fileExistsAtPath(system.systemInfo.lockFilePath));
  change("enabled", false, "");
  EXPECT_NE(text("Problem").find("enabled = false"), std::string::npos);
}

}  // namespace
}  // namespace wrixel2::daemon
