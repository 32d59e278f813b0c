#include "companion/ButtonActions.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "companion/CallControl.h"
#include "companion/CommandRunner.h"
#include "companion/MediaControl.h"

namespace wrixel2::companion {

namespace {

using settings::ButtonAction;
using settings::CompanionSettings;

constexpr std::array<std::string_view, CompanionSettings::kCountedPresses> kSettingNames = {
    "button.once", "button.twice", "button.thrice"};

}  // namespace

void ButtonActions::setSettings(const CompanionSettings& settings) { settings_ = settings; }

void ButtonActions::buttonPressed() {
  ++presses_;
  if (!isCounting()) {
    actOnPresses();
    return;
  }
  window_ = loop_.scheduledTimer(std::chrono::milliseconds(settings_.buttonWindow), false,
                                 [this] { actOnPresses(); });
}

bool ButtonActions::isCounting() const {
  const auto& actions = settings_.buttonActions;
  return settings_.buttonWindow > 0 &&
         std::any_of(actions.begin() + 1, actions.end(), [](const ButtonAction& action) {
           return action.kind != ButtonAction::Kind::none;
         });
}

void ButtonActions::actOnPresses() {
  window_.reset();
  const auto presses = std::min(std::exchange(presses_, 0), CompanionSettings::kCountedPresses);
  logger_.info(fmt::format("The band's button was pressed {}",
                           presses == 1 ? "once" : fmt::format("{} times", presses)));
  act(settings_.buttonActions.at(presses - 1), presses);
}

void ButtonActions::act(const ButtonAction& action, std::size_t presses) {
  switch (action.kind) {
    case ButtonAction::Kind::none:
      break;
    case ButtonAction::Kind::command:
      commands_.run(action.command, kSettingNames.at(presses - 1));
      break;
    case ButtonAction::Kind::playPause:
      media_.playPause();
      break;
    case ButtonAction::Kind::silenceCall:
      calls_.silence();
      break;
    case ButtonAction::Kind::hangUp:
      calls_.hangUp();
      break;
  }
}

}  // namespace wrixel2::companion
