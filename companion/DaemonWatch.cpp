#include "companion/DaemonWatch.h"

namespace wrixel2::companion {

using platform::linux::BusConnection;
using platform::linux::BusMessage;

platform::Result<std::unique_ptr<DaemonWatch>> DaemonWatch::start(BusConnection& bus,
                                                                  Callback ready, Callback gone) {
  std::unique_ptr<DaemonWatch> watch(new DaemonWatch(bus, std::move(ready), std::move(gone)));
  auto match =
      bus.watchOwner("org.corvale.wrixel2dIpc", [raw = watch.get()](const std::string& owner) {
        raw->pendingPing_.reset();
        raw->gone_();
        if (!owner.empty()) {
          raw->askForSignOfLife();
        }
      });
  if (!match) {
    return match.error();
  }
  watch->ownerChanges_ = std::move(*match);
  if (const auto error = watch->askForSignOfLife()) {
    return *error;
  }
  return watch;
}

platform::ErrorOrNone DaemonWatch::askForSignOfLife() {
  auto ping = bus_.newMethodCall(
      {"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc", "org.freedesktop.DBus.Peer"}, "Ping");
  if (!ping) {
    return ping.error();
  }
  ping->setAutoStart(false);
  // Any answer will do, even that there is nobody: the daemon is not waited for beyond this.
  auto pending = bus_.callAsync(*ping, [this](const BusMessage&) { ready_(); });
  if (!pending) {
    return pending.error();
  }
  pendingPing_ = std::move(*pending);
  return std::nullopt;
}

}  // namespace wrixel2::companion
