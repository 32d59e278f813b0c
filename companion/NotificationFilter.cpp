#include "companion/NotificationFilter.h"

#include <algorithm>

namespace wrixel2::companion {

namespace {

/// A copy of an alarm that no longer shows what it is says nothing new; an alarm does, also after
/// such a copy.
bool isCoveredBy(const AppNotification& notification, const AppNotification& earlier) {
  return notification.app == earlier.app &&
         (notification.alarm == AlarmPhase::none || notification.alarm == earlier.alarm) &&
         notification.saysTheSame(earlier);
}

}  // namespace

bool NotificationFilter::passes(const AppNotification& notification) {
  const platform::MonotonicTime now = clock_.monotonicNow();
  if (notification.isTransient || isRepeat(notification, now) ||
      isUpdateWithoutNews(notification)) {
    return false;
  }
  if (passed_.size() == kRemembered) {
    passed_.erase(passed_.begin());
  }
  passed_.push_back({notification, now});
  return true;
}

bool NotificationFilter::isRepeat(const AppNotification& notification,
                                  platform::MonotonicTime now) const {
  return std::any_of(passed_.begin(), passed_.end(), [&](const Passed& earlier) {
    return now - earlier.when < kRepeatWindow && isCoveredBy(notification, earlier.notification);
  });
}

bool NotificationFilter::isUpdateWithoutNews(const AppNotification& notification) const {
  if (notification.replacedId == 0) {
    return false;
  }
  // The identifier that the first one got is not known here: it may be any of the app's first ones.
  const auto replaced = std::find_if(passed_.rbegin(), passed_.rend(), [&](const Passed& earlier) {
    return earlier.notification.app == notification.app &&
           (earlier.notification.replacedId == notification.replacedId ||
            earlier.notification.replacedId == 0);
  });
  return replaced != passed_.rend() && isCoveredBy(notification, replaced->notification);
}

}  // namespace wrixel2::companion
