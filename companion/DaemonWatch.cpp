#include "companion/DaemonWatch.h"

#include <utility>

namespace wrixel2::companion {

using platform::linux::BusMessage;

DaemonWatch::DaemonWatch(platform::linux::BusConnection& bus, Callback ready, Callback gone)
    : ready_(std::move(ready)), gone_(std::move(gone)), daemon_(bus, "org.corvale.wrixel2dIpc") {
  daemon_.start([this](bool isThere) { daemonIs(isThere); });
}

void DaemonWatch::daemonIs(bool isThere) {
  const bool isFirst = !std::exchange(isFollowed_, true);
  if (!isFirst) {
    gone_();  // also of a new one, which knows nothing yet
  }
  if (isThere) {
    // Any answer will do.
    daemon_.ask(
        "/org/corvale/wrixel2dIpc", "org.freedesktop.DBus.Peer", "Ping", {}, {}, {},
        [this](const BusMessage&, const platform::Array&) { ready_(); }, ready_);
  } else if (isFirst) {
    ready_();
  }
}

}  // namespace wrixel2::companion
