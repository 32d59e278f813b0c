#pragma once

#include <string>

#include "companion/AppNotification.h"

namespace wrixel2::companion {

/// Who is told of the notifications of the phone's apps, and of what becomes of them. Handles are
/// those of AppNotification.
class NotificationListener {
 public:
  virtual ~NotificationListener() = default;
  virtual void appNotified(const AppNotification& notification) = 0;
  /// What was shown under the one handle has the other as well, if there is such a one.
  virtual void notificationRenamed(const std::string& handle, const std::string& other) = 0;
  /// It is no longer shown, or its owner has chosen what to do about it.
  virtual void notificationEnded(const std::string& handle) = 0;
};

}  // namespace wrixel2::companion
