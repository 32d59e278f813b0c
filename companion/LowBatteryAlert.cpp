#include "companion/LowBatteryAlert.h"

#include <utility>

#include <fmt/format.h>

#include "companion/UserAlertPresenter.h"

namespace wrixel2::companion {

namespace {

constexpr std::string_view kHasAlerted = "lowBatteryAlerted";
constexpr std::int64_t kFull = 100;

}  // namespace

void LowBatteryAlert::setThreshold(std::int64_t threshold) {
  const auto before = std::exchange(threshold_, threshold);
  if (before == threshold) {
    return;
  }
  if (before != 0 && level_ != 0 && level_ >= threshold) {
    setHasAlerted(false);
  }
  look();
}

void LowBatteryAlert::levelIs(std::int64_t level) {
  if (level > 0) {
    level_ = level;
    look();
  }
}

void LowBatteryAlert::look() {
  if (level_ == 0 || threshold_ == 0) {
    return;
  }
  if (level_ >= kFull || level_ >= threshold_ + kCharged) {
    setHasAlerted(false);
  } else if (level_ < threshold_ && !hasAlerted()) {
    // Remembered first: rather no alert than one at every start.
    setHasAlerted(true);
    userAlerts_.present("Band battery low", fmt::format("{} % left", level_));
  }
}

bool LowBatteryAlert::hasAlerted() const {
  const auto value = defaults_.objectForKey(kHasAlerted);
  return value && value->boolValue();
}

void LowBatteryAlert::setHasAlerted(bool alerted) {
  if (alerted != hasAlerted()) {
    defaults_.setObjectForKey(kHasAlerted, alerted);
    defaults_.synchronize();
  }
}

}  // namespace wrixel2::companion
