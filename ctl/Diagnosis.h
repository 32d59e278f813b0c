#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ctl/HostFacts.h"
#include "platform/Value.h"

namespace wrixel2::ctl {

enum class Verdict : std::uint8_t { ok, warning, problem };

/// What was found of one thing, and what to do about it (nothing where it is well).
struct Finding {
  Verdict verdict = Verdict::ok;
  std::string subject;
  std::string finding;
  std::string remedy;
};

/// Everything that was found out before it is judged.
struct Examination {
  HostFacts host;
  std::string sessionBusProblem;  ///< empty where there is a session
  std::optional<platform::Dictionary> daemon;
  std::optional<platform::Dictionary> companion;
  std::string keyProblem;       ///< empty where there is a key
  bool isKeyUsual = true;       ///< see PairingKey
  std::string settingsWarning;  ///< "FILE:LINE: what is ignored in it", empty where nothing is
  std::string settingsProblem;
  bool hasSettingsFile = true;
  std::string healthStoreProblem;
};

/// Judges each thing, in the order in which one depends on the other.
std::vector<Finding> diagnose(const Examination& examination);

}  // namespace wrixel2::ctl
