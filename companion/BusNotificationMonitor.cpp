#include "companion/BusNotificationMonitor.h"

#include <vector>

#include <fmt/format.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

using platform::linux::BusConnection;
using platform::linux::BusMessage;

constexpr std::string_view kNotifications = "org.freedesktop.Notifications";
constexpr std::string_view kGtkNotifications = "org.gtk.Notifications";
/// To which GNOME's notification service hands on, as one more Notify, each that it gets.
constexpr std::string_view kForwardDestination = "org.gnome.Shell";

std::string matchRule(std::string_view interface, std::string_view member) {
  return fmt::format("type='method_call',interface='{}',member='{}'", interface, member);
}

}  // namespace

platform::Result<std::unique_ptr<BusNotificationMonitor>> BusNotificationMonitor::start(
    platform::linux::LinuxRunLoop& loop, platform::Log& log, std::string ownConnection,
    Callback callback) {
  std::unique_ptr<BusNotificationMonitor> monitor(
      new BusNotificationMonitor(std::move(ownConnection), std::move(callback)));
  auto opened = BusConnection::openSessionMonitor(
      loop, {matchRule(kNotifications, "Notify"), matchRule(kGtkNotifications, "AddNotification")},
      [raw = monitor.get()](const BusMessage& message) { raw->received(message); });
  if (!opened) {
    return opened.error();
  }
  monitor->connection_ = std::move(*opened);
  monitor->connection_->onDisconnected(
      [&loop, logger = platform::Logger(log, "NotificationMonitor")] {
        logger.error("The session bus ended the monitor");
        loop.stop(1);
      });
  return monitor;
}

void BusNotificationMonitor::received(const BusMessage& message) const {
  // A copy that is addressed by the shell's unique name is told by its texts (NotificationFilter).
  if (message.sender() == ownConnection_ || message.destination() == kForwardDestination) {
    return;
  }
  // Ill-formed notifications are between the app and the service that it called.
  const auto arguments = message.arguments();
  if (!arguments) {
    return;
  }
  const auto notification = message.is(kNotifications, "Notify")
                                ? notificationFromNotify(*arguments)
                                : notificationFromAddNotification(*arguments);
  if (notification) {
    callback_(*notification);
  }
}

}  // namespace wrixel2::companion
