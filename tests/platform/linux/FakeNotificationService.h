#pragma once

#include <functional>

#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::linux {

inline const BusAddress kNotificationService{"org.freedesktop.Notifications",
                                             "/org/freedesktop/Notifications",
                                             "org.freedesktop.Notifications"};

/// A desktop's notification service, under its name on the bus. `notified` is given the arguments
/// of each Notify (the summary is the fourth, the body the fifth) and says the notification's
/// number.
Result<BusSlot> serveNotifications(const BusConnection& bus,
                                   std::function<int(const Array& arguments)> notified);

}  // namespace wrixel2::platform::linux
