#include "companion/NotificationFilter.h"

#include <algorithm>

namespace wrixel2::companion {

namespace {

bool readsTheSame(const AppNotification& one, const AppNotification& other) {
  return one.app == other.app && one.title == other.title && one.body == other.body;
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
    return now - earlier.when < kRepeatWindow && readsTheSame(earlier.notification, notification);
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
  return replaced != passed_.rend() && readsTheSame(replaced->notification, notification);
}

}  // namespace wrixel2::companion
