#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Log.h"
#include "platform/Value.h"

namespace wrixel2::daemon {

/// The move reminder's settings. Numbers are 32-bit signed entries kept in 64-bit unsigned fields,
/// so a negative entry is a huge number here; MoveWindow and NextStepCheck refuse those.
struct MoveSettings {
  bool moveEnabled = false;
  bool onlyWeekdays = true;
  std::uint64_t sensitivity = 10;  ///< steps; a period with no more triggers the reminder
  std::uint64_t stepRepeat = 1;
  std::uint64_t remindPeriod = 1;  ///< hours
  std::uint64_t startSteps = 8;    ///< first hour of the daily window
  std::uint64_t endSteps = 16;     ///< its end hour; below the first one, the window spans midnight

  static MoveSettings fromDictionary(const platform::Dictionary& entries,
                                     const platform::Logger& logger);

  /// Whether the other asks for different checks. The repeat count is no part of that: it is only
  /// looked up when the band vibrates.
  bool schedulesLike(const MoveSettings& other) const;
};

/// How an app's notifications show on the band.
struct AppAlertSettings {
  std::uint64_t repeat = 1;
  std::uint64_t icon = 0;  ///< 0: no alert at all
  std::uint64_t pattern = 0;
  bool preview = false;  ///< send the text along
};

/// Everything the shell companion lets the user choose: a copy of its whole dictionary, and a typed
/// value for each global key. A key that the dictionary lacks has its default.
struct Settings {
  bool enabled = true;
  bool doNotDisturb = true;
  bool doNotAnnoy = false;
  bool alarmSwitch = true;
  bool vibrateHrMeasure = false;
  bool onlyLocked = false;
  std::uint64_t connectedMode = 0;  ///< 0 off, 1 on, 2 on unless Do Not Disturb
  bool continuousHr = false;
  bool stopwatchSwitch = false;
  std::uint64_t mode = 0;        ///< quiet time per app and sender (1) or per app (any other)
  std::uint64_t timeout = 15;    ///< quiet time in seconds
  std::uint64_t hrInterval = 0;  ///< minutes, 0 off
  MoveSettings move;
  /// The dictionary itself: the per-app keys are looked up here when they are needed.
  platform::Dictionary snapshot;

  static Settings fromDictionary(platform::Dictionary entries, const platform::Logger& logger);

  AppAlertSettings alertOfApp(std::string_view sectionID, const platform::Logger& logger) const;
};

}  // namespace wrixel2::daemon
