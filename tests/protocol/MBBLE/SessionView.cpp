#include "tests/protocol/MBBLE/SessionView.h"

#include <fmt/format.h>

namespace wrixel2::mbble {

std::string differences(const SessionView& real, const SessionView& expected) {
  std::string text;
  const auto compare = [&text](std::string_view name, const auto& one, const auto& other) {
    if (one != other) {
      text += fmt::format("  {} is {}, expected {}\n", name, one, other);
    }
  };
  compare("state", real.state, expected.state);
  compare("notificationActive", real.isNotificationActive, expected.isNotificationActive);
  compare("stepsActive", real.isStepsActive, expected.isStepsActive);
  compare("stepExtraTime", real.isStepExtraTime, expected.isStepExtraTime);
  compare("heartRateActive", real.isHeartRateActive, expected.isHeartRateActive);
  compare("heartRateRequested", real.isHeartRateRequested, expected.isHeartRateRequested);
  compare("setTimeActive", real.isSetTimeActive, expected.isSetTimeActive);
  compare("connectedMode", real.isConnectedMode, expected.isConnectedMode);
  compare("scanning", real.isScanning, expected.isScanning);
  compare("lock", real.macToLock, expected.macToLock);
  compare("watchdog", real.watchdog.value_or(-1), expected.watchdog.value_or(-1));
  compare("band", real.band, expected.band);
  compare("connected", real.isConnected, expected.isConnected);
  compare("initialized", real.isInitialized, expected.isInitialized);
  compare("link", real.link, expected.link);
  compare("connections", real.connections, expected.connections);
  compare("step postings", real.stepPostings, expected.stepPostings);
  compare("postings without steps", real.postingsWithoutSteps, expected.postingsWithoutSteps);
  compare("retries given up", real.givenUpRetries, expected.givenUpRetries);
  compare("capability answers", real.capabilityAnswers, expected.capabilityAnswers);
  return text;
}

}  // namespace wrixel2::mbble
