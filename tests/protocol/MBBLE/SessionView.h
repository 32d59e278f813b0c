#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace wrixel2::mbble {

/// What of a session shows: the same of the real one and of the model it is held against.
struct SessionView {
  int state = 0;
  bool isNotificationActive = false;
  bool isStepsActive = false;
  bool isStepExtraTime = false;
  bool isHeartRateActive = false;
  bool isHeartRateRequested = false;
  bool isSetTimeActive = false;
  bool isConnectedMode = false;
  bool isScanning = false;
  std::string macToLock;
  std::optional<std::int64_t> watchdog;  ///< microseconds until it fires
  std::string band;                      ///< the MAC address of the one that is known; or empty
  bool isConnected = false;
  bool isInitialized = false;
  int link = 0;  ///< as the band sees it: 0 none, 1 connected, 2 authenticated
  // Since the beginning:
  int connections = 0;
  int stepPostings = 0;
  int postingsWithoutSteps = 0;
  int givenUpRetries = 0;
  int capabilityAnswers = 0;  ///< to requests for them

  friend bool operator==(const SessionView&, const SessionView&) = default;
};

/// One line an entry; those that differ from the other are marked.
std::string differences(const SessionView& real, const SessionView& expected);

}  // namespace wrixel2::mbble
