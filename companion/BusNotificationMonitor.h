#pragma once

#include <functional>
#include <memory>
#include <string>

#include "companion/AppNotification.h"
#include "platform/Log.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// Sees what the apps of the session notify, on a private connection to the session bus.
///
/// Nobody's notifications are delayed or changed by it. It sees them whether or not anything on the
/// phone shows them.
class BusNotificationMonitor {
 public:
  using Callback = std::function<void(const AppNotification& notification)>;

  /// In force when it returns. Notifications that the connection named `ownConnection` sends are
  /// not reported. Should the bus end the monitor, the loop is stopped with status 1. Fails where
  /// the bus does not allow monitors.
  static platform::Result<std::unique_ptr<BusNotificationMonitor>> start(
      platform::linux::LinuxRunLoop& loop, platform::Log& log, std::string ownConnection,
      Callback callback);

 private:
  BusNotificationMonitor(std::string ownConnection, Callback callback)
      : ownConnection_(std::move(ownConnection)), callback_(std::move(callback)) {}

  void received(const platform::linux::BusMessage& message) const;

  std::string ownConnection_;
  Callback callback_;
  std::unique_ptr<platform::linux::BusConnection> connection_;
};

}  // namespace wrixel2::companion
