#pragma once

#include <functional>
#include <memory>

#include "platform/Platform.h"

namespace wrixel2::daemon {

/// Tells when the local time has leapt, so that the band's clock, which only counts on, is wrong:
/// the phone's clock was set, the owner went to another zone, or summer time begins or ends.
class ClockKeeper {
 public:
  /// The platform outlives it.
  ClockKeeper(const platform::Platform& platform, std::function<void()> timeLeapt);

  /// The next change of the zone's own, such as the beginning of summer time; none within a year.
  static std::optional<platform::Date> nextZoneTransition(const platform::TimeZone& zone,
                                                          platform::Date from);

 private:
  void localTimeChanged();
  void awaitTransition();

  const platform::Platform& platform_;
  std::function<void()> timeLeapt_;
  std::unique_ptr<platform::Observation> observation_;
  std::unique_ptr<platform::Timer> transitionTimer_;
};

}  // namespace wrixel2::daemon
