#pragma once

#include <chrono>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace wrixel2::mbble {

/// One thing that happens to a session: a request, something on the radio, or time that passes.
struct SessionStep {
  enum class Kind : std::uint8_t {
    alert,  ///< repeat, icon
    stop,
    heartRate,  ///< mode
    steps,
    time,
    battery,
    connectedMode,  ///< on
    disconnect,
    lock,
    unlock,
    lockElsewhere,  ///< the lock file names another band, from the next power-on
    capabilities,
    scan,
    inRange,          ///< whether the band is
    drop,             ///< code; the band ends its link
    refuse,           ///< how many authentications the band refuses
    dropDuringSetup,  ///< operation, code; of the next link
    failConnect,      ///< the next one
    power,            ///< the radio's state
    somebodyElse,     ///< another program connects the band
    wait              ///< milliseconds
  };

  Kind kind = Kind::wait;
  std::int64_t first = 0;
  std::int64_t second = 0;
};

using SessionSteps = std::vector<SessionStep>;

/// What may happen, each kind about as often as is useful.
SessionStep randomSessionStep(std::mt19937_64& random);

/// As a test has it: "{Kind::alert, 1, 5},".
std::string description(const SessionStep& step);
std::string description(const SessionSteps& steps);

}  // namespace wrixel2::mbble
