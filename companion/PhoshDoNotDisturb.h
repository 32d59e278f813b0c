#pragma once

#include <optional>
#include <string>
#include <vector>

#include "companion/DoNotDisturbSource.h"
#include "platform/linux/PropertyWatch.h"

namespace wrixel2::companion {

/// Phosh's feedback daemon, whose profile ("full", "quiet" or "silent") says how much the phone is
/// to make itself felt. Which of them mean Do Not Disturb is the owner's choice.
class PhoshDoNotDisturb final : public DoNotDisturbSource {
 public:
  /// The bus outlives it.
  explicit PhoshDoNotDisturb(platform::linux::BusConnection& bus);

  void setSilentProfiles(std::vector<std::string> profiles);

 private:
  void update();

  std::vector<std::string> silentProfiles_;
  std::optional<std::string> profile_;  ///< none while the phone has no such daemon
  platform::linux::PropertyWatch watch_;
};

}  // namespace wrixel2::companion
