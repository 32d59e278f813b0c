#pragma once

#include <array>
#include <cstdint>
#include <string_view>

namespace wrixel2::settings {

enum class ValueKind : std::uint8_t { boolean, integer };

/// The notification that tells the daemon of a change, in the order in which several are posted.
enum class Announcement : std::uint8_t {
  move,
  service,
  hkInterval,
  continuous,
  stopwatchChanged,
  hk,  ///< everything else, the apps' keys among it
};

inline constexpr std::array<std::string_view, 6> kAnnouncementNames = {
    "org.corvale.wrixel2prefs.preferencechanged/move",
    "org.corvale.wrixel2prefs.preferencechanged",
    "org.corvale.wrixel2prefs.preferencechanged/hkInterval",
    "org.corvale.wrixel2prefs.preferencechanged/continuous",
    "org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged",
    "org.corvale.wrixel2prefs.preferencechanged/hk",
};

constexpr std::string_view notificationName(Announcement announcement) {
  return kAnnouncementNames[static_cast<std::size_t>(announcement)];
}

struct GlobalKey {
  std::string_view name;
  ValueKind kind;
  Announcement announcement;
};

/// Every key that is not an app's.
inline constexpr std::array<GlobalKey, 19> kGlobalKeys = {{
    {"enabled", ValueKind::boolean, Announcement::service},
    {"donotdisturb", ValueKind::boolean, Announcement::hk},
    {"donotannoy", ValueKind::boolean, Announcement::hk},
    {"alarmSwitch", ValueKind::boolean, Announcement::hk},
    {"vibrateHrMeasure", ValueKind::boolean, Announcement::hk},
    {"onlyLocked", ValueKind::boolean, Announcement::hk},
    {"connectedMode", ValueKind::integer, Announcement::service},
    {"continuousHr", ValueKind::boolean, Announcement::continuous},
    {"stopwatchSwitch", ValueKind::boolean, Announcement::stopwatchChanged},
    {"mode", ValueKind::integer, Announcement::hk},
    {"timeout", ValueKind::integer, Announcement::hk},
    {"hrInterval", ValueKind::integer, Announcement::hkInterval},
    {"moveEnabled", ValueKind::boolean, Announcement::move},
    {"onlyWeekdays", ValueKind::boolean, Announcement::move},
    {"sensitivity", ValueKind::integer, Announcement::move},
    {"stepRepeat", ValueKind::integer, Announcement::move},
    {"remindPeriod", ValueKind::integer, Announcement::move},
    {"startSteps", ValueKind::integer, Announcement::move},
    {"endSteps", ValueKind::integer, Announcement::move},
}};

/// None for a key that is no global one.
constexpr const GlobalKey* findGlobalKey(std::string_view name) {
  for (const GlobalKey& key : kGlobalKeys) {
    if (key.name == name) {
      return &key;
    }
  }
  return nullptr;
}

}  // namespace wrixel2::settings
