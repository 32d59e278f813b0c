#pragma once

#include <vector>

#include "platform/Date.h"

namespace wrixel2::platform::simulated {

/// The phone's time zone, which a test can move. Starts as GMT.
class SimulatedTimeZone final : public TimeZone {
 public:
  /// From this moment on, so many seconds east of GMT.
  struct Transition {
    Date date;
    int secondsFromGMT = 0;
  };

  int secondsFromGMT(Date date) const override;

  /// A zone without daylight saving.
  void setSecondsFromGMT(int seconds);
  /// A zone that begins with the offset and changes at each transition, earliest first.
  void setTransitions(int secondsFromGMT, std::vector<Transition> transitions);
  /// One hour east of GMT, two from the last Sunday of March to the last Sunday of October, each at
  /// 01:00 UTC (Directive 2000/84/EC); for the years 2000 to 2099.
  void setCentralEurope();

  /// Changes with every setting, so that date timers notice.
  unsigned generation() const { return generation_; }

 private:
  int initialOffset_ = 0;
  std::vector<Transition> transitions_;
  unsigned generation_ = 0;
};

}  // namespace wrixel2::platform::simulated
