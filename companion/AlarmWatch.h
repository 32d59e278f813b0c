#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include "companion/AppNotification.h"
#include "companion/BulletinOutbox.h"

namespace wrixel2::companion {

/// The ringing alarms that were handed on, until they are stopped or snoozed on the phone.
///
/// One alarm may be shown several times (by the app, a portal, the shell): the end of any of these
/// is its end.
class AlarmWatch {
 public:
  using Tickets = std::vector<BulletinOutbox::Ticket>;

  /// The ringing alarm was handed on.
  void alerted(const AppNotification& alarm, BulletinOutbox::Ticket ticket);
  /// What was not handed on, being no news: another copy of an alarm, maybe.
  void shownAgain(const AppNotification& notification);
  /// What was known by the one handle is from now on known by the other as well.
  void renamed(std::string_view handle, const std::string& other);

  /// The alarms that end because this takes their place: a notice that its app's alarm is snoozed,
  /// or another notification with other words. They are forgotten.
  Tickets replacedBy(const AppNotification& notification);
  /// The alarm, if it is one, that was shown under the handle. It is forgotten.
  Tickets ended(std::string_view handle);

 private:
  struct Alarm {
    AppNotification notification;
    BulletinOutbox::Ticket ticket = 0;
    std::vector<std::string> handles;

    bool isShownAs(std::string_view handle) const;
    void add(const std::string& handle);
  };
  static constexpr std::size_t kMostAlarms = 16;
  static constexpr std::size_t kMostHandles = 8;

  template <typename Predicate>
  Tickets forget(Predicate isMeant);

  std::deque<Alarm> alarms_;  ///< oldest first
};

}  // namespace wrixel2::companion
