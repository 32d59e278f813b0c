#pragma once

#include <memory>

#include "daemon/Settings.h"
#include "protocol/MBBLE/MiBand.h"

namespace wrixel2::daemon {

/// What the controller decides by, and shares with the scheduler, which only reads it.
struct DaemonState {
  Settings settings;
  /// Do Not Disturb, as the shell companion said last.
  bool dndActive = false;
  /// Starts as locked: the phone has just come up, and nobody has unlocked it yet.
  bool deviceLocked = true;
  /// A lock was announced, and its lock-state posting is still to come.
  bool lockCompleteSeen = false;
  /// The band service has been brought up.
  bool started = false;
  /// Made at the first start, then kept. Requests before it have no effect.
  std::unique_ptr<mbble::MiBand> band;

  /// Whether the owner wants to be left alone now.
  bool isQuiet() const { return settings.doNotDisturb && dndActive; }
};

}  // namespace wrixel2::daemon
