#pragma once

#include <memory>
#include <string>

#include "companion/NotificationListener.h"
#include "platform/Log.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// Sees what the apps of the session notify and how that ends, on a private connection to the
/// session bus.
///
/// Nobody's notifications are delayed or changed by it. It sees them whether or not anything on the
/// phone shows them. Of answers it asks the bus for those of the notification service alone, which
/// have the numbers of what is shown.
class BusNotificationMonitor {
 public:
  /// In force when it returns. Notifications that the connection named `ownConnection` sends are
  /// not reported. Should the bus end the monitor, the loop is stopped with status 1. Fails where
  /// the bus does not allow monitors. The listener outlives the monitor.
  static platform::Result<std::unique_ptr<BusNotificationMonitor>> start(
      platform::linux::LinuxRunLoop& loop, platform::Log& log, std::string ownConnection,
      NotificationListener& listener);

 private:
  BusNotificationMonitor(platform::Log& log, std::string ownConnection,
                         NotificationListener& listener)
      : logger_(log, "NotificationMonitor"),
        ownConnection_(std::move(ownConnection)),
        listener_(listener) {}

  void received(const platform::linux::BusMessage& message) const;
  void receivedCall(const platform::linux::BusMessage& message, platform::Array arguments) const;
  void report(const platform::Result<AppNotification>& notification) const;

  platform::Logger logger_;
  std::string ownConnection_;
  NotificationListener& listener_;
  std::unique_ptr<platform::linux::BusConnection> connection_;
};

}  // namespace wrixel2::companion
