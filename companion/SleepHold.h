#pragma once

#include <memory>
#include <string>

#include "companion/BandWork.h"
#include "companion/SleepInhibitor.h"
#include "platform/RunLoop.h"

namespace wrixel2::companion {

/// Holds the phone's sleep back while the band is being served: from the moment that there is
/// something to do for it until the daemon is done with it, or for a while.
class SleepHold final : public BandWork {
 public:
  /// After the last cause. The service manager allows no more.
  static constexpr platform::TimeInterval kHold = std::chrono::seconds(5);

  /// Both outlive it.
  SleepHold(platform::RunLoop& loop, SleepInhibitor& inhibitor)
      : loop_(loop), inhibitor_(inhibitor) {}

  void bandHasWork() override;
  /// The daemon's state as it shows it; empty while there is no daemon.
  void daemonStateIs(const std::string& state);

 private:
  void letGo();

  platform::RunLoop& loop_;
  SleepInhibitor& inhibitor_;
  std::string daemonState_;
  std::unique_ptr<platform::Timer> timer_;
};

}  // namespace wrixel2::companion
