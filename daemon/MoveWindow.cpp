#include "daemon/MoveWindow.h"

#include <fmt/format.h>

namespace wrixel2::daemon {

MoveWindowFault moveWindowFault(const MoveSettings& settings) {
  const auto start = settings.startSteps;
  const auto end = settings.endSteps;
  if (start == end) {
    return MoveWindowFault::sameHours;
  }
  const std::uint64_t lastHour = start < end ? end : end + 24;
  return start + settings.remindPeriod >= lastHour ? MoveWindowFault::periodTooLong
                                                   : MoveWindowFault::none;
}

std::string invalidStepConfiguration(const MoveSettings& settings) {
  return fmt::format("Invalid step configuration stepsFrom: {}, stepsTill: {}, stepsPeriod: {}",
                     settings.startSteps, settings.endSteps, settings.remindPeriod);
}

}  // namespace wrixel2::daemon
