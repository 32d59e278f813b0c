#pragma once

#include <functional>

#include "platform/linux/BusService.h"

namespace wrixel2::companion {

/// Tells when the daemon can be spoken to.
///
/// A daemon takes its name before it observes what is posted to it. Hence it is asked for a sign of
/// life first, which it can only give once it serves its loop: what is posted then is not lost.
class DaemonWatch {
 public:
  using Callback = std::function<void()>;

  /// Calls `ready` once for the present (also when there is no daemon), and each time that the
  /// daemon's name has a new owner; `gone` at each change, before. Never before this has returned.
  /// The bus outlives the watch.
  DaemonWatch(platform::linux::BusConnection& bus, Callback ready, Callback gone);

 private:
  void daemonIs(bool isThere);

  Callback ready_;
  Callback gone_;
  bool isFollowed_ = false;
  platform::linux::BusService daemon_;
};

}  // namespace wrixel2::companion
