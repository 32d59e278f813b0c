#pragma once

#include <cstdint>
#include <string>

#include "daemon/Settings.h"

namespace wrixel2::daemon {

enum class MoveWindowFault : std::uint8_t {
  none,
  sameHours,     ///< the window begins and ends at one hour
  periodTooLong  ///< not even one period fits before the window's end
};

/// Whether the daily window has room for a period. The comparison is unsigned and wraps: an hour
/// that is none is not looked for here.
MoveWindowFault moveWindowFault(const MoveSettings& settings);

/// The log line of a window that cannot be used.
std::string invalidStepConfiguration(const MoveSettings& settings);

}  // namespace wrixel2::daemon
