#include "tests/protocol/MBBLE/SessionStep.h"

#include <array>
#include <string_view>

#include <fmt/format.h>

namespace wrixel2::mbble {
namespace {

using Kind = SessionStep::Kind;

constexpr std::array<std::string_view, 21> kNames = {"alert",
                                                     "stop",
                                                     "heartRate",
                                                     "steps",
                                                     "time",
                                                     "battery",
                                                     "connectedMode",
                                                     "disconnect",
                                                     "lock",
                                                     "unlock",
                                                     "lockElsewhere",
                                                     "capabilities",
                                                     "scan",
                                                     "inRange",
                                                     "drop",
                                                     "refuse",
                                                     "dropDuringSetup",
                                                     "failConnect",
                                                     "power",
                                                     "somebodyElse",
                                                     "wait"};

}  // namespace

SessionStep randomSessionStep(std::mt19937_64& random) {
  const auto below = [&random](std::int64_t count) {
    return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(count));
  };
  const auto oneOf = [&below](const auto&... items) {
    const std::array<std::int64_t, sizeof...(items)> all{items...};
    return all.at(static_cast<std::size_t>(below(sizeof...(items))));
  };
  switch (below(40)) {
    case 0:
    case 1:
    case 2:
    case 3:
      return {Kind::alert, oneOf(0, 1, 5, 9, 10, 11, 100, 150),
              oneOf(0, 1, 4, 5, 9, 14, 26, 27, 28, 29, 30)};
    case 4:
      return {Kind::stop};
    case 5:
    case 6:
      return {Kind::heartRate, below(4)};
    case 7:
    case 8:
      return {Kind::steps};
    case 9:
    case 10:
      return {Kind::time};
    case 11:
      return {Kind::battery};
    case 12:
      return {Kind::connectedMode, below(2)};
    case 13:
      return {Kind::disconnect};
    case 14:
      return {Kind::lock};
    case 15:
      return {Kind::unlock};
    case 16:
      return {Kind::lockElsewhere};
    case 17:
      return {Kind::capabilities};
    case 18:
      return {Kind::scan};
    case 19:
    case 20:
    case 21:
      return {Kind::inRange, oneOf(0, 1, 1)};
    case 22:
    case 23:
      return {Kind::drop, oneOf(6, 7)};
    case 24:
      return {Kind::refuse, below(8)};
    case 25:
      return {Kind::dropDuringSetup, 1 + below(9), oneOf(0, 6, 7, 7, 19)};
    case 26:
      return {Kind::failConnect};
    case 27:
    case 28:
      return {Kind::power, oneOf(0, 1, 2, 3, 4, 4, 5, 5, 5, 5, 5, 5)};
    case 29:
      return {Kind::somebodyElse};
    default:
      // Odd lengths, so that what began at different times does not fall due at the same.
      return {Kind::wait, oneOf(below(300), below(3'000), below(12'000), below(70'000))};
  }
}

std::string description(const SessionStep& step) {
  return fmt::format("{{Kind::{}, {}, {}}},", kNames.at(static_cast<std::size_t>(step.kind)),
                     step.first, step.second);
}

std::string description(const SessionSteps& steps) {
  std::string text;
  for (const auto& step : steps) {
    text += "      " + description(step) + "\n";
  }
  return text;
}

}  // namespace wrixel2::mbble
