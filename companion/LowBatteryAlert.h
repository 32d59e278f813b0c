#pragma once

#include <cstdint>

#include "platform/UserDefaults.h"

namespace wrixel2::companion {

class UserAlertPresenter;

/// Tells the owner once when the band's battery has run low, and again only after it was charged in
/// between. It remembers in the user defaults that it has.
class LowBatteryAlert {
 public:
  /// So many points above the threshold it counts as charged; full does so in any case.
  static constexpr std::int64_t kCharged = 10;

  /// Both outlive it. Until a threshold is set there is no alert.
  LowBatteryAlert(UserAlertPresenter& userAlerts, platform::UserDefaults& defaults)
      : userAlerts_(userAlerts), defaults_(defaults) {}

  /// Per cent below which the battery is low; 0: never. A battery that is not low by a changed
  /// threshold may run low by it again.
  void setThreshold(std::int64_t threshold);
  /// Per cent; 0 is unknown.
  void levelIs(std::int64_t level);

 private:
  void look();
  bool hasAlerted() const;
  void setHasAlerted(bool hasAlerted);

  UserAlertPresenter& userAlerts_;
  platform::UserDefaults& defaults_;
  std::int64_t threshold_ = 0;
  std::int64_t level_ = 0;
};

}  // namespace wrixel2::companion
