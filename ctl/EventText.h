#pragma once

#include <string>

#include "platform/Date.h"
#include "platform/NotificationCenter.h"
#include "platform/Value.h"

namespace wrixel2::ctl {

/// One thing that happened in the session, for people and for programs.
struct EventText {
  std::string line;           ///< without time and line break
  platform::Dictionary json;  ///< without the time

  /// A time in it is told as one of today, or with its day.
  static EventText ofStatus(const std::string& property, const platform::Value& value,
                            platform::Date now, const platform::TimeZone& zone);
  static EventText ofPosting(const std::string& name);
  static EventText ofNotification(const platform::Notification& notification);
  static EventText ofProgram(const std::string& program, bool runs);
};

}  // namespace wrixel2::ctl
