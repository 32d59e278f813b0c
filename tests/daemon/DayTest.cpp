#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "band/BandRecorder.h"
#include "band/VirtualBand.h"
#include "tests/daemon/DaemonHarness.h"

namespace wrixel2::daemon {
namespace {

using namespace std::chrono_literals;
using platform::CentralState;

/// What happened how often, by name.
using Tally = std::map<std::string, int>;

constexpr auto kDay = 24h;
constexpr auto kStart = 18h;  // of the first day, so that midnight and a whole window are in it

/// Twenty-four hours with everything in them, against what the rules say of each event.
class DayTest : public DaemonHarness {
 protected:
  DayTest() {
    keyProvider.key = band->pairingKey();
    system.radio.addBand(band);
    system.clock.setWallClock(midnight + kStart);
  }

  /// At a time of the day; those before the start are of the second day.
  void at(std::chrono::seconds time, std::function<void()> action) {
    script_.emplace(time < kStart ? time + kDay : time, std::move(action));
  }

  void play() {
    for (const auto& [time, action] : script_) {
      system.runLoop.advanceTo(midnight + time);
      action();
    }
    system.runLoop.advanceTo(midnight + kStart + kDay);
  }

  Tally shown() const {
    Tally tally;
    for (const auto& display : recorder.displays()) {
      ++tally[display.text.empty() ? "icon " + platform::hexText(display.icon) : display.text];
    }
    return tally;
  }

  platform::Date midnight = std::chrono::sys_days(std::chrono::March / 10 / 2026);  // a Tuesday
  std::shared_ptr<band::VirtualBand> band = std::make_shared<band::VirtualBand>(platform());
  band::BandRecorder recorder{*band};

 private:
  std::multimap<std::chrono::seconds, std::function<void()>> script_;
};

TEST_F(DayTest, NothingIsMissingAndNothingComesTwice) {
  Tally expected;
  Tally heartRates;
  const auto isAway = [](std::chrono::seconds time) {
    return (time >= 10h + 10min && time < 10h + 40min) ||
           (time >= 19h + 5min && time < 19h + 50min);
  };
  const auto isOff = [](std::chrono::seconds time) {
    return time >= 13h + 29min && time < 13h + 33min;
  };
  const auto isQuiet = [](std::chrono::seconds time) { return time >= 22h || time < 7h; };

  // A message every twenty minutes: shown as its icon and then its text, except in quiet hours and
  // where the band could not be reached before the session gave up.
  for (auto time = std::chrono::seconds(3min); time < kDay; time += 20min) {
    const std::string text =
        fmt::format("message at {:02}{:02}", time / 1h, time % std::chrono::seconds(1h) / 1min);
    at(time, [this, text] {
      send("bulletinRequest", {{"sectionID", "org.example.Chat"}, {"message", text}});
    });
    if (!isAway(time) && !isOff(time) && !isQuiet(time)) {
      ++expected[text];
      ++expected["icon fa0101"];
    }
  }
  // A measurement every ten minutes from the start on, a second after the round time.
  for (auto time = std::chrono::seconds(kStart + 10min); time < kStart + kDay; time += 10min) {
    const auto ofDay = time % std::chrono::seconds(kDay);
    const int rate = 50 + static_cast<int>(time / 10min % 100);
    at(ofDay, [this, rate] { band->setHeartRate(static_cast<std::uint8_t>(rate)); });
    if (!isAway(ofDay) && !isOff(ofDay)) {
      ++heartRates[std::to_string(rate)];
    }
  }
  // One reading fails, and is taken once more five seconds later.
  const std::string failing =
      std::to_string(50 + static_cast<int>((15h + 10min + kDay) / 10min % 100));
  at(15h + 10min + 1s, [this] { band->setHeartRate(0); });
  at(15h + 10min + 14s, [this] { band->setHeartRate(177); });
  --heartRates[failing];
  ++heartRates["0"];
  ++heartRates["177"];
  // The owner asks once.
  at(12h + 5min, [this] {
    band->setHeartRate(180);
    postPreference("/measure");
  });
  ++heartRates["180"];

  // Every other hour of the window is spent sitting, with five steps.
  for (auto hour = 8h; hour < 16h; ++hour) {
    const bool sits = hour.count() % 2 == 0;
    at(hour + 30min, [this, sits] { band->setSteps(band->steps() + (sits ? 5 : 500)); });
    if (sits) {
      ++expected["icon fa0105"];
    }
  }
  at(0h, [this] { band->setSteps(0); });  // the band counts each day anew

  at(11h + 15min, [this] { send("phoneCall", {{"newCall", true}, {"text", "Anna"}}); });
  at(11h + 15min + 20s, [this] { send("phoneCall", {{"callHanged", true}}); });
  ++expected["Anna"];

  // Within quiet hours: an alarm is for waking. It repeats every five seconds until it is stopped.
  at(6h + 55min, [this] {
    send("bulletinRequest", {{"sectionID", "com.apple.mobiletimer"}, {"title", "Wake up"}});
  });
  at(6h + 55min + 19s, [this] { send("stopVibration"); });
  expected["icon fa010a"] = 4;
  expected["icon 00"] = 2;  // the end of the call and that of the alarm clear the screen

  at(22h, [this] { setQuiet(true); });
  at(7h, [this] { setQuiet(false); });
  for (const auto from : {10h + 10min, 19h + 5min}) {
    at(from, [this] { band->setIsInRange(false); });
    at(from + (from < 12h ? 30min : 45min), [this] { band->setIsInRange(true); });
  }
  at(13h + 29min, [this] { system.radio.setState(CentralState::poweredOff); });
  at(13h + 33min, [this] { system.radio.setState(CentralState::poweredOn); });

  band->setSteps(4000);
  startService({{"hrInterval", 10},
                {"moveEnabled", true},
                {"MBIcon-org.example.Chat", 8},
                {"MBPreview-org.example.Chat", true}});
  play();

  EXPECT_EQ(shown(), expected);

  std::erase_if(heartRates, [](const auto& entry) { return entry.second == 0; });
  Tally stored;
  for (const auto& message : system.messageCenters.sentMessages("writeHeartRate")) {
    ++stored[std::to_string(platform::intForKey(message.userInfo, "heartRate"))];
  }
  EXPECT_EQ(stored, heartRates);
  EXPECT_EQ(userAlerts(), UserAlerts{"Heart Rate|Your Heart Rate: 180"});

  // At the end of the day: the next measurement and the next step check, and a band that rests.
  EXPECT_EQ(band->link(), band::BandLink::disconnected);
  EXPECT_EQ(timers("com.corvalt.wrixel2"), 1U);
  EXPECT_EQ(timers("com.corvale.wrixel2/step"), 1U);
}

}  // namespace
}  // namespace wrixel2::daemon
