#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::companion {

/// What an app asked the desktop to show.
struct AppNotification {
  std::string app;  ///< the app's identifier; empty when it does not say
  std::optional<std::string> title;
  std::string body;                   ///< plain text
  std::optional<std::string> sender;  ///< who wrote, for messages of people
  bool isTransient = false;           ///< not worth keeping, by the app's own word
  std::int64_t replacedId = 0;        ///< of the one whose place it takes; 0 for none

  friend bool operator==(const AppNotification&, const AppNotification&) = default;
};

/// From the arguments of org.freedesktop.Notifications.Notify (Desktop Notifications Specification
/// 1.2): application name, replaced id, icon, summary, body, actions, hints and time to show it. An
/// error where they are not that.
platform::Result<AppNotification> notificationFromNotify(const platform::Array& arguments);

/// From the arguments of org.gtk.Notifications.AddNotification, by which GApplication programs
/// notify: application identifier, identifier of the notification, and what it says. Its texts are
/// plain.
platform::Result<AppNotification> notificationFromAddNotification(const platform::Array& arguments);

/// The user info of the "bulletinRequest" that passes it on.
platform::Dictionary bulletinUserInfo(const AppNotification& notification);

}  // namespace wrixel2::companion
