#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companion/ButtonActions.h"
#include "companion/CallControl.h"
#include "companion/CommandRunner.h"
#include "companion/MediaControl.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::companion {
namespace {

using settings::ButtonAction;
using Kind = ButtonAction::Kind;
using Lines = std::vector<std::string>;
using namespace std::chrono_literals;

/// Writes down what is done.
struct Recorder final : CommandRunner, MediaControl, CallControl {
  void run(const std::vector<std::string>& command, std::string_view setting) override {
    done.push_back(command.front() + " of " + std::string(setting));
  }
  void playPause() override { done.emplace_back("playPause"); }
  void silence() override { done.emplace_back("silence"); }
  void hangUp() override { done.emplace_back("hangUp"); }
  Lines done;
};

struct Case {
  const char* what;
  std::int64_t window;
  std::array<Kind, 3> actions;
  std::vector<int> pressesAt;  ///< milliseconds
  Lines done;
  Lines doneAtOnce;  ///< at the last press
};

class ButtonActionsTest : public testing::TestWithParam<Case> {};

TEST_P(ButtonActionsTest, Counts) {
  const Case& item = GetParam();
  platform::simulated::SimulatedPlatform phone;
  Recorder recorder;
  ButtonActions button(phone.runLoop, phone.log, recorder, recorder, recorder);
  settings::CompanionSettings settings;
  settings.buttonWindow = item.window;
  for (std::size_t i = 0; i < item.actions.size(); ++i) {
    settings.buttonActions.at(i) = {item.actions.at(i), {"/bin/program"}};
  }
  button.setSettings(settings);
  int now = 0;
  for (const int at : item.pressesAt) {
    phone.runLoop.runFor(std::chrono::milliseconds(at - std::exchange(now, at)));
    button.buttonPressed();
  }
  EXPECT_EQ(recorder.done, item.doneAtOnce);
  phone.runLoop.runFor(1min);
  EXPECT_EQ(recorder.done, item.done);
  EXPECT_EQ(phone.runLoop.pendingTimers(), 0U);
}

constexpr std::array kAll = {Kind::command, Kind::playPause, Kind::hangUp};
constexpr std::array kOne = {Kind::silenceCall, Kind::none, Kind::none};
constexpr std::array kThird = {Kind::none, Kind::none, Kind::command};

INSTANTIATE_TEST_SUITE_P(
    Presses, ButtonActionsTest,
    testing::Values(
        Case{"one", 1000, kAll, {0}, {"/bin/program of button.once"}, {}},
        Case{"two", 1000, kAll, {0, 999}, {"playPause"}, {}},
        Case{"three", 1000, kAll, {0, 900, 1800}, {"hangUp"}, {}},
        Case{"five count as three", 1000, kAll, {0, 1, 2, 3, 4}, {"hangUp"}, {}},
        Case{"twice one",
             1000,
             kAll,
             {0, 1000},
             {"/bin/program of button.once", "/bin/program of button.once"},
             {"/bin/program of button.once"}},
        Case{"no window",
             0,
             kAll,
             {0, 0},
             {"/bin/program of button.once", "/bin/program of button.once"},
             {"/bin/program of button.once", "/bin/program of button.once"}},
        Case{
            "nothing to count", 1000, kOne, {0, 5}, {"silence", "silence"}, {"silence", "silence"}},
        Case{"only three do something", 1000, kThird, {0, 1}, {}, {}},
        Case{"three", 1000, kThird, {0, 1, 2}, {"/bin/program of button.thrice"}, {}}),
    [](const auto& testCase) { return "Case" + std::to_string(testCase.index); });

}  // namespace
}  // namespace wrixel2::companion
