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
  /// Calls back once for the present (also when there is no daemon), and each time that the
  /// daemon's name has a new owner; never before start() has returned. The bus outlives the watch.
  static platform::Result<std::unique_ptr<DaemonWatch>> start(platform::linux::BusConnection& bus,
                                                              std::function<void()> ready);

 private:
  DaemonWatch(platform::linux::BusConnection& bus, std::function<void()> ready)
      : bus_(bus), ready_(std::move(ready)) {}

  platform::ErrorOrNone askForSignOfLife();

  platform::linux::BusConnection& bus_;
  std::function<void()> ready_;
  platform::linux::BusSlot ownerChanges_;
  platform::linux::BusSlot pendingPing_;
};

}  // namespace wrixel2::companion
