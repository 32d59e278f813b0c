#include <cstdlib>
#include <random>
#include <string>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "tests/protocol/MBBLE/SessionMachine.h"

namespace wrixel2::mbble {
namespace {

using Kind = SessionStep::Kind;

std::uint64_t numberFromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

void expectAgreement(const SessionSteps& steps) {
  if (const auto found = disagreement(steps)) {
    ADD_FAILURE() << "After step " << found->step << "\n" << found->how;
  }
}

TEST(SessionMachineTest, KeepsToItsRulesWhereItOnceDidNot) {
  // A radio that was away without having been switched off.
  for (const std::int64_t state : {0, 2, 3}) {
    SCOPED_TRACE(state);
    expectAgreement({
        {Kind::wait, 3000, 0},
        {Kind::power, state, 0},
        {Kind::power, 5, 0},
        {Kind::wait, 3000, 0},
        {Kind::alert, 1, 5},
    });
  }
}

/// WRIXEL2_SESSION_SEED begins elsewhere, WRIXEL2_SESSION_STEPS goes further.
TEST(SessionMachineTest, KeepsToItsRulesWhateverHappens) {
  constexpr std::uint64_t kSteps = 20'000;
  constexpr std::uint64_t kStepsOfOne = 125;
  const auto firstSeed = numberFromEnvironment("WRIXEL2_SESSION_SEED", 1);
  const auto count = numberFromEnvironment("WRIXEL2_SESSION_STEPS", kSteps) / kStepsOfOne;
  for (std::uint64_t seed = firstSeed; seed < firstSeed + count; ++seed) {
    std::mt19937_64 random(seed);
    SessionSteps steps;
    for (std::uint64_t step = 0; step < kStepsOfOne; ++step) {
      steps.push_back(randomSessionStep(random));
    }
    if (disagreement(steps)) {
      steps = minimised(steps);
      FAIL() << "With WRIXEL2_SESSION_SEED=" << seed << ", and as a test:\n"
             << "    expectAgreement({\n"
             << description(steps) << "    });\n"
             << disagreement(steps).value_or(Disagreement()).how;
    }
  }
}

}  // namespace
}  // namespace wrixel2::mbble
