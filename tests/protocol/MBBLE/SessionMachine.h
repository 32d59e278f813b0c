#pragma once

#include <memory>
#include <optional>
#include <string>

#include "band/VirtualBand.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBBLE/MBHealthKitManager.h"
#include "protocol/MBBLE/Services/KeyProvider.h"
#include "tests/protocol/MBBLE/SessionStep.h"
#include "tests/protocol/MBBLE/SessionView.h"

namespace wrixel2::mbble {

/// A real session with a virtual band, on a radio that takes no time.
class SessionMachine {
 public:
  SessionMachine();
  SessionMachine(const SessionMachine&) = delete;
  SessionMachine& operator=(const SessionMachine&) = delete;
  ~SessionMachine();

  void take(const SessionStep& step);
  const SessionView& view() const { return view_; }
  /// What is against the session's nature, whatever the rules say; empty: nothing.
  std::string fault(const SessionStep& step) const;

 private:
  class FixedKey final : public mbservices::KeyProvider {
    std::string getMiFitAuthId() override { return std::string(band::kDefaultPairingKey); }
  };

  void request(const SessionStep& step);
  void look();
  std::size_t capabilityReports() const;

  platform::simulated::SimulatedPlatform phone_;
  FixedKey key_;
  MBHealthKitManager healthKit_{phone_.healthStore, phone_.systemInfo, phone_.clock, phone_.log};
  std::shared_ptr<band::VirtualBand> band_;
  std::shared_ptr<MBCentralManager> manager_;
  SessionView view_;
};

/// Both take the steps, those that mean something. The first step after which they differ, and how;
/// none if they never do.
struct Disagreement {
  std::size_t step = 0;
  std::string how;
};
std::optional<Disagreement> disagreement(const SessionSteps& steps);

/// As few of the steps as still end in a disagreement.
SessionSteps minimised(SessionSteps steps);

}  // namespace wrixel2::mbble
