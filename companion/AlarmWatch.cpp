#include "companion/AlarmWatch.h"

#include <algorithm>

namespace wrixel2::companion {

bool AlarmWatch::Alarm::isShownAs(std::string_view handle) const {
  return !handle.empty() && std::find(handles.begin(), handles.end(), handle) != handles.end();
}

void AlarmWatch::Alarm::add(const std::string& handle) {
  if (!handle.empty() && handles.size() < kMostHandles && !isShownAs(handle)) {
    handles.push_back(handle);
  }
}

template <typename Predicate>
AlarmWatch::Tickets AlarmWatch::forget(Predicate isMeant) {
  Tickets tickets;
  std::erase_if(alarms_, [&](const Alarm& alarm) {
    const bool isForgotten = isMeant(alarm);
    if (isForgotten) {
      tickets.push_back(alarm.ticket);
    }
    return isForgotten;
  });
  return tickets;
}

void AlarmWatch::alerted(const AppNotification& alarm, BulletinOutbox::Ticket ticket) {
  // In the same place with new words: it still rings, and there is one alert to end.
  forget([&alarm](const Alarm& known) {
    return known.isShownAs(alarm.handle) || known.isShownAs(alarm.replacedHandle());
  });
  if (alarms_.size() == kMostAlarms) {
    alarms_.pop_front();
  }
  Alarm& added = alarms_.emplace_back(Alarm{alarm, ticket, {}});
  added.add(alarm.handle);
  added.add(alarm.replacedHandle());
}

void AlarmWatch::shownAgain(const AppNotification& notification) {
  for (Alarm& alarm : alarms_) {
    if (notification.alarm == AlarmPhase::ringing && alarm.notification.app == notification.app &&
        alarm.notification.saysTheSame(notification)) {
      alarm.add(notification.handle);
    }
  }
}

void AlarmWatch::renamed(std::string_view handle, const std::string& other) {
  for (Alarm& alarm : alarms_) {
    if (alarm.isShownAs(handle)) {
      alarm.add(other);
    }
  }
}

AlarmWatch::Tickets AlarmWatch::replacedBy(const AppNotification& notification) {
  switch (notification.alarm) {
    case AlarmPhase::ringing:
      return {};
    case AlarmPhase::snoozing:
      return forget([&](const Alarm& alarm) { return alarm.notification.app == notification.app; });
    case AlarmPhase::none:
      break;
  }
  // A copy in the same place may have lost its buttons on its way; the words stay.
  return forget([&](const Alarm& alarm) {
    return (alarm.isShownAs(notification.handle) ||
            alarm.isShownAs(notification.replacedHandle())) &&
           !alarm.notification.saysTheSame(notification);
  });
}

AlarmWatch::Tickets AlarmWatch::ended(std::string_view handle) {
  return forget([handle](const Alarm& alarm) { return alarm.isShownAs(handle); });
}

}  // namespace wrixel2::companion
