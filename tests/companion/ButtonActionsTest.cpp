#include <array>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "companion/ButtonActions.h"
#include "companion/CallControl.h"
#include "companion/CommandRunner.h"
#include "companion/MediaControl.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::companion {
namespace {

using Kind = settings::ButtonAction::Kind;
using namespace std::chrono_literals;

/// Writes down what is done.
struct Recorder final : CommandRunner, MediaControl, CallControl {
  void run(const std::vector<std::string>& command, std::string_view setting) override {
    done += command.front() + " of " + std::string(setting) + "; ";
  }
  void playPause() override { done += "playPause; "; }
  void silence() override { done += "silence; "; }
  void hangUp() override { done += "hangUp; "; }
  std::string done;
};

TEST(ButtonActionsTest, PressesWithinAWindowCountTogether) {
  constexpr std::array kAll = {Kind::command, Kind::playPause, Kind::hangUp};
  constexpr std::array kOne = {Kind::silenceCall, Kind::none, Kind::none};
  constexpr std::array kThird = {Kind::none, Kind::none, Kind::command};
  const std::string kOnce = "date of button.once; ";
  const struct {
    const char* what;
    int window;
    std::array<Kind, 3> actions;
    std::vector<int> pressesAt;  ///< milliseconds
    std::string doneAtOnce;      ///< at the last press
    std::string done;
  } kCases[] = {
      {"one", 1000, kAll, {0}, "", kOnce},
      {"two", 1000, kAll, {0, 999}, "", "playPause; "},
      {"three", 1000, kAll, {0, 900, 1800}, "", "hangUp; "},
      {"five count as three", 1000, kAll, {0, 1, 2, 3, 4}, "", "hangUp; "},
      {"twice one", 1000, kAll, {0, 1000}, kOnce, kOnce + kOnce},
      {"no window", 0, kAll, {0, 0}, kOnce + kOnce, kOnce + kOnce},
      {"nothing to count", 1000, kOne, {0, 5}, "silence; silence; ", "silence; silence; "},
      {"only three do something", 1000, kThird, {0, 1}, "", ""},
      {"three of them", 1000, kThird, {0, 1, 2}, "", "date of button.thrice; "},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    platform::simulated::SimulatedPlatform phone;
    Recorder recorder;
    ButtonActions button(phone.runLoop, phone.log, recorder, recorder, recorder);
    settings::CompanionSettings settings;
    settings.buttonWindow = c.window;
    for (std::size_t i = 0; i < c.actions.size(); ++i) {
      settings.buttonActions.at(i) = {c.actions.at(i), {"date"}};
    }
    button.setSettings(settings);
    int now = 0;
    for (const int at : c.pressesAt) {
      phone.runLoop.runFor(std::chrono::milliseconds(at - std::exchange(now, at)));
      button.buttonPressed();
    }
    EXPECT_EQ(recorder.done, c.doneAtOnce);
    phone.runLoop.runFor(1min);
    EXPECT_EQ(recorder.done, c.done);
    EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
  }
}

}  // namespace
}  // namespace wrixel2::companion
