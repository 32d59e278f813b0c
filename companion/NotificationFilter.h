#pragma once

#include <cstddef>
#include <vector>

#include "companion/AppNotification.h"
#include "platform/Clock.h"

namespace wrixel2::companion {

/// Keeps back what is no news to the owner:
/// - notifications that their app calls transient;
/// - a repeat of the same app, title and body within two seconds, since shells and portals pass a
///   notification on as one more, of the same kind or another;
/// - an update in place (of a progress bar, say) that leaves title and body as they were.
class NotificationFilter {
 public:
  static constexpr platform::TimeInterval kRepeatWindow = platform::seconds(2);

  explicit NotificationFilter(const platform::Clock& clock) : clock_(clock) {}

  bool passes(const AppNotification& notification);

 private:
  struct Passed {
    AppNotification notification;
    platform::MonotonicTime when;
  };
  static constexpr std::size_t kRemembered = 64;

  bool isRepeat(const AppNotification& notification, platform::MonotonicTime now) const;
  bool isUpdateWithoutNews(const AppNotification& notification) const;

  const platform::Clock& clock_;
  std::vector<Passed> passed_;  ///< the latest ones, oldest first
};

}  // namespace wrixel2::companion
