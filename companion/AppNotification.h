#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::companion {

/// What a notification has to do with an alarm clock.
enum class AlarmPhase : std::uint8_t {
  none,
  ringing,
  snoozing,  ///< it says that an alarm will ring again
};

/// What an app asked the desktop to show. Apps are not trusted: what they say is held to
/// platform::kLongestText, and to kLongestIdentifier where it tells things apart.
struct AppNotification {
  std::string app;  ///< the app's identifier; empty when it does not say
  std::optional<std::string> title;
  std::string body;                   ///< plain text
  std::optional<std::string> sender;  ///< who wrote, for messages of people
  bool isTransient = false;           ///< not worth keeping, by the app's own word
  std::int64_t replacedId = 0;        ///< of the one whose place it takes; 0 for none
  std::string appName = {};           ///< what the app calls itself for its users; may be empty
  AlarmPhase alarm = AlarmPhase::none;
  std::string handle = {};  ///< by which its end is known later; empty where nothing tells of it

  /// The handle of the one whose place it takes; empty for none.
  std::string replacedHandle() const;
  /// Whether title and body read the same, apart from markup and blanks: whoever shows a
  /// notification once more may have added markup, or taken it away.
  bool saysTheSame(const AppNotification& other) const;

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

/// From the arguments of org.freedesktop.impl.portal.Notification.AddNotification, by which the
/// portal has the notification of a sandboxed app shown (XDG Desktop Portal, version 2): as above,
/// and the body may be markup.
platform::Result<AppNotification> notificationFromPortal(const platform::Array& arguments);

/// Handles of notifications, which never meet: of one that a program shows under a name of its own
/// choice, of one by the number that the service gave it, and of one by the call that asked for it
/// (the number is in the answer).
std::string handleOfName(std::string_view app, std::string_view name);
std::string handleOfNumber(std::int64_t number);
std::string handleOfCall(std::string_view caller, std::uint64_t cookie);

/// The identifier under which it is passed on, and under which its settings are: the app's, for an
/// alarm that of the phone's clock.
std::string sectionOf(const AppNotification& notification);

/// The user info of the "bulletinRequest" that passes it on. An alarm always has a title, by which
/// the daemon tells a ringing from a snoozing one.
platform::Dictionary bulletinUserInfo(const AppNotification& notification);

}  // namespace wrixel2::companion
