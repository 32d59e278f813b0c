#pragma once

#include <functional>
#include <memory>

#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// Tells when the daemon can be spoken to.
///
/// A daemon takes its name before it observes what is posted to it. Hence it is asked for a sign of
/// life first, which it can only give once it serves its loop: what is posted then is not lost.
class DaemonWatch {
 public:
  using Callback = std::function<void()>;

  /// Calls `ready` once for the present (also when there is no daemon), and each time that the
  /// daemon's name has a new owner; `gone` each time that it has lost the one it had. Never before
  /// start() has returned. The bus outlives the watch.
  static platform::Result<std::unique_ptr<DaemonWatch>> start(platform::linux::BusConnection& bus,
                                                              Callback ready, Callback gone);

 private:
  DaemonWatch(platform::linux::BusConnection& bus, Callback ready, Callback gone)
      : bus_(bus), ready_(std::move(ready)), gone_(std::move(gone)) {}

  platform::ErrorOrNone askForSignOfLife();

  platform::linux::BusConnection& bus_;
  Callback ready_;
  Callback gone_;
  platform::linux::BusSlot ownerChanges_;
  platform::linux::BusSlot pendingPing_;
};

}  // namespace wrixel2::companion
