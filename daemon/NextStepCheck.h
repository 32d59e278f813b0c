#pragma once

#include <cstdint>
#include <optional>

#include "daemon/Settings.h"
#include "platform/Date.h"

namespace wrixel2::daemon {

/// When the band's step counter is to be read next for the move reminder.
struct NextStepCheck {
  platform::Date fireDate;
  std::uint64_t addedDays = 0;
  /// The reading opens a daily window: what was counted before it does not matter.
  bool forgetsBaseline = false;

  friend bool operator==(const NextStepCheck&, const NextStepCheck&) = default;
};

/// None where the settings leave no moment to read at: a window without room for a period, an hour
/// or a period that is none, or a moment that would not lie after now.
///
/// With a baseline (a count read at the start of the present period) the reading is on the full
/// hour at the period's end; without one it is two seconds from now. Outside the window, and on a
/// weekend that does not count, it is at the next window's first hour.
std::optional<NextStepCheck> nextStepCheck(platform::Date now, const platform::TimeZone& zone,
                                           const MoveSettings& settings, bool hasBaseline);

}  // namespace wrixel2::daemon
