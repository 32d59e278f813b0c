#include "companion/BusNotificationMonitor.h"

#include <vector>

#include <fmt/format.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::linux::BusConnection;
using platform::linux::BusMessage;

constexpr std::string_view kNotifications = "org.freedesktop.Notifications";
constexpr std::string_view kGtkNotifications = "org.gtk.Notifications";
constexpr std::string_view kPortal = "org.freedesktop.impl.portal.Notification";
/// To which GNOME's notification service hands on, as one more Notify, each that it gets.
constexpr std::string_view kForwardDestination = "org.gnome.Shell";

constexpr std::string_view kNotifyTypes = "susssasa{sv}i";
constexpr std::string_view kAddTypes = "ssa{sv}";

/// The arguments of a notification of which only the first ones could be read.
void fillIn(Array& arguments, std::string_view types) {
  const Array empty = types == kNotifyTypes
                          ? Array{"", 0, "", "", "", Array(), platform::Dictionary(), -1}
                          : Array{"", "", platform::Dictionary()};
  arguments.insert(arguments.end(), empty.begin() + static_cast<std::ptrdiff_t>(arguments.size()),
                   empty.end());
}

std::vector<std::string> matchRules() {
  std::vector<std::string> rules;
  const auto add = [&rules](std::string_view type, std::string_view interface,
                            std::string_view member) {
    rules.push_back(fmt::format("type='{}',interface='{}',member='{}'", type, interface, member));
  };
  add("method_call", kNotifications, "Notify");
  add("method_call", kNotifications, "CloseNotification");
  add("method_call", kGtkNotifications, "AddNotification");
  add("method_call", kGtkNotifications, "RemoveNotification");
  add("method_call", kPortal, "AddNotification");
  add("method_call", kPortal, "RemoveNotification");
  for (const std::string_view signal : {"NotificationClosed", "ActionInvoked"}) {
    rules.push_back(fmt::format("type='signal',sender='{0}',interface='{0}',member='{1}'",
                                kNotifications, signal));
  }
  rules.push_back(fmt::format("type='method_return',sender='{}'", kNotifications));
  return rules;
}

/// Of an end that is told by number.
std::string numberedHandle(const Array& arguments) {
  return arguments.empty() ? std::string() : handleOfNumber(arguments[0].longValue());
}

/// Of an end that is told by the app and its own name for the notification.
std::string namedHandle(const Array& arguments) {
  const bool isNamed =
      arguments.size() >= 2 && arguments[0].text() != nullptr && arguments[1].text() != nullptr;
  return isNamed ? handleOfName(*arguments[0].text(), *arguments[1].text()) : std::string();
}

}  // namespace

platform::Result<std::unique_ptr<BusNotificationMonitor>> BusNotificationMonitor::start(
    platform::linux::LinuxRunLoop& loop, platform::Log& log, std::string ownConnection,
    NotificationListener& listener) {
  std::unique_ptr<BusNotificationMonitor> monitor(
      new BusNotificationMonitor(log, std::move(ownConnection), listener));
  auto opened = BusConnection::openSessionMonitor(
      loop, matchRules(),
      [raw = monitor.get()](const BusMessage& message) { raw->received(message); });
  if (!opened) {
    return opened.error();
  }
  monitor->connection_ = std::move(*opened);
  monitor->connection_->onDisconnected([&loop, logger = monitor->logger_] {
    logger.error("The session bus ended the monitor");
    loop.stop(1);
  });
  return monitor;
}

void BusNotificationMonitor::received(const BusMessage& message) const {
  // Of the answers, which may be many, only those with a number can be that of a Notify.
  const bool isAnswer = !message.isMethodCall() && !message.isSignal();
  if (isAnswer && message.signature() != "u") {
    return;
  }
  // Ill-formed messages are between their sender and the one that it sent them to.
  Array arguments;
  if (const auto error = message.readBoundedArguments(arguments)) {
    logger_.warning(fmt::format("{} from {} is taken as far as it can be read: {}",
                                message.member(), message.sender(), description(*error)));
  }
  if (isAnswer) {
    listener_.notificationRenamed(handleOfCall(message.destination(), message.replyCookie()),
                                  numberedHandle(arguments));
  } else if (message.isMethodCall()) {
    receivedCall(message, std::move(arguments));
  } else if (message.interface() == kNotifications) {
    listener_.notificationEnded(numberedHandle(arguments));
  }
}

void BusNotificationMonitor::receivedCall(const BusMessage& message, Array arguments) const {
  // A copy that is addressed by the shell's unique name is told by its texts (NotificationFilter).
  if (message.sender() == ownConnection_ || message.destination() == kForwardDestination) {
    return;
  }
  const std::string_view types = message.signature();
  if (types == kNotifyTypes || types == kAddTypes) {
    fillIn(arguments, types);
  }
  if (message.is(kNotifications, "Notify")) {
    auto notification = notificationFromNotify(arguments);
    if (notification) {
      notification->handle = handleOfCall(message.sender(), message.cookie());
    }
    report(notification);
  } else if (message.is(kNotifications, "CloseNotification")) {
    listener_.notificationEnded(numberedHandle(arguments));
  } else if (message.member() == "RemoveNotification") {
    listener_.notificationEnded(namedHandle(arguments));
  } else {
    report(message.interface() == kPortal ? notificationFromPortal(arguments)
                                          : notificationFromAddNotification(arguments));
  }
}

void BusNotificationMonitor::report(const platform::Result<AppNotification>& notification) const {
  if (notification) {
    listener_.appNotified(*notification);
  }
}

}  // namespace wrixel2::companion
