#include <string>

#include "band/VirtualBand.h"
#include "tests/daemon/DaemonHarness.h"

namespace wrixel2::daemon {
namespace {

using namespace std::chrono_literals;
using platform::Dictionary;
using platform::LogLevel;

/// What no owner does on purpose.
class FaultsTest : public DaemonHarness, protected band::BandObserver {
 protected:
  FaultsTest() {
    system.radio.addBand(band_);
    band_->addObserver(*this);
  }
  ~FaultsTest() override { band_->removeObserver(*this); }

  std::size_t longestWrite = 0;

 private:
  void bandDidReceiveWrite(const platform::UUID& /*service*/, const platform::UUID& /*of*/,
                           platform::ByteView value, platform::WriteType /*type*/) override {
    longestWrite = std::max(longestWrite, value.size());
  }

  std::shared_ptr<band::VirtualBand> band_ = std::make_shared<band::VirtualBand>(system.handle());
};

TEST_F(FaultsTest, AClockThatJumpsByYearsNeitherStopsNorFloodsTheMeasurements) {
  startService({{"hrInterval", 10}, {"moveEnabled", true}, {"remindPeriod", 1}, {"endSteps", 23}});
  system.runLoop.runFor(15min);
  const auto timers = system.runLoop.persistentTimers().size();
  for (const auto jump : {20, -50, 400, -370, 2}) {
    SCOPED_TRACE(jump);
    system.clock.setWallClock(system.clock.now() + 24h * 365 * jump);
    run();
    system.runLoop.runFor(1min);
    forget();
    system.runLoop.runFor(2h);
    EXPECT_GE(heartRequests(0), 11U);
    EXPECT_LE(heartRequests(0), 13U);
    EXPECT_LE(stepRequests(), 3U);
    EXPECT_LE(system.runLoop.persistentTimers().size(), timers + 1) << "and the watchdog";
  }
}

TEST_F(FaultsTest, AWeekOfSleepIsNotMadeUpFor) {
  startService({{"hrInterval", 60}});
  system.runLoop.runFor(1min);
  forget();
  system.runLoop.sleepFor(24h * 7);
  EXPECT_GE(heartRequests(0), 24U * 7 - 1) << "the phone is woken for each";
  EXPECT_LE(heartRequests(0), 24U * 7 + 1);
  forget();
  system.runLoop.runFor(2h);
  EXPECT_EQ(heartRequests(0), 2U);
}

TEST_F(FaultsTest, TenThousandAppsAreTenThousandApps) {
  Dictionary settings{{"donotannoy", true}, {"timeout", 10}};
  const auto nameOf = [](int app) { return "org.example.App" + std::to_string(app); };
  for (int app = 0; app < 10'000; ++app) {
    settings.emplace("MBIcon-" + nameOf(app), 1 + app % 30);
    settings.emplace("MBRepeat-" + nameOf(app), app % 5);
  }
  startService(std::move(settings));
  for (int app = 0; app < 10'000; ++app) {
    bulletin({{"sectionID", nameOf(app)}, {"title", "T"}, {"message", "M"}});
    const auto alert = newBandAlert();
    ASSERT_TRUE(alert) << app;
    EXPECT_EQ(alert->repeat, app % 5 + 1U);
    forget();
  }
}

TEST_F(FaultsTest, TextsOfAnySizeAndEncodingReachTheBandAsItTakesThem) {
  startService({{"MBIcon-app", 9}, {"MBPreview-app", true}, {"MBIcon-\xFF", 9}});
  system.runLoop.runFor(1min);
  const std::string texts[] = {std::string(1 << 20, 'x'),
                               std::string(1 << 20, '\xFF'),
                               "\xC3",  // a character cut off
                               std::string("a\0b", 3),
                               "\xED\xA0\x80 \xF4\x90\x80\x80",
                               ""};
  for (const auto& text : texts) {
    for (const auto* app : {"app", "\xFF"}) {
      send("bulletinRequest",
           {{"sectionID", app}, {"title", text}, {"message", text}, {"sender", text}});
      send("phoneCall", {{"newCall", true}, {"text", text}});
      send("appChanged", {{"appInfo", text}});
      system.runLoop.runFor(1min);
    }
  }
  EXPECT_EQ(longestWrite, 20U);
  for (const auto& line : system.log.lines()) {
    EXPECT_EQ(line.text.find("xxxxxxxx"), std::string::npos) << "no text in the log";
  }
  bulletin({{"sectionID", "app"}, {"title", "T"}, {"message", "M"}});
  EXPECT_TRUE(newBandAlert());
}

}  // namespace
}  // namespace wrixel2::daemon
