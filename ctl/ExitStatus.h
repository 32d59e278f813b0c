#pragma once

#include <cstdint>
#include <string>
#include <utility>

#include "platform/Error.h"

namespace wrixel2::ctl {

/// What the program ends with. Scripts rely on the numbers.
enum class ExitStatus : std::uint8_t {
  done = 0,
  failed = 1,
  badUsage = 2,
  notRunning = 3,  ///< the daemon, or the companion where it is needed
  timedOut = 4,    ///< no answer in time: the band was not reached
};

/// Added to an exit status that an error carries as its code: errno's numbers are beside it.
inline constexpr long kExitStatusCodes = 1'000'000;

/// An error that ends the program with the status.
inline platform::Error failure(ExitStatus status, std::string message) {
  return {kExitStatusCodes + static_cast<long>(status), std::move(message)};
}

}  // namespace wrixel2::ctl
