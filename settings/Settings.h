#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Value.h"

namespace wrixel2::settings {

/// How one app's notifications reach the band.
struct AppSettings {
  std::int64_t icon = 0;    ///< 0: no alert
  std::int64_t repeat = 0;  ///< the band repeats once more than this
  std::int64_t pattern = 0;
  bool preview = false;  ///< whether the band shows the text

  friend bool operator==(const AppSettings&, const AppSettings&) = default;
};

/// What a press of the band's button does.
struct ButtonAction {
  enum class Kind : std::uint8_t {
    none,
    command,      ///< a program is run, without a shell
    playPause,    ///< of what plays media
    silenceCall,  ///< the ringing call goes on without a sound
    hangUp,       ///< the ringing call is rejected
  };
  Kind kind = Kind::none;
  std::vector<std::string> command;  ///< program and arguments, of a command

  friend bool operator==(const ButtonAction&, const ButtonAction&) = default;
};

/// What the companion itself does, of which the daemon knows nothing.
struct CompanionSettings {
  static constexpr std::size_t kCountedPresses = 3;

  /// Per cent of the band's battery below which the owner is told; 0: never.
  std::int64_t lowBattery = 15;
  /// The profiles of Phosh's feedback daemon that mean Do Not Disturb.
  std::vector<std::string> silentProfiles = {"silent"};
  /// Presses that follow each other within so many milliseconds are counted together.
  std::int64_t buttonWindow = 1000;
  /// For one, two and three presses.
  std::array<ButtonAction, kCountedPresses> buttonActions;

  friend bool operator==(const CompanionSettings&, const CompanionSettings&) = default;
};

/// What one settings file says. Keys that it leaves out have the daemon's own defaults.
struct Settings {
  platform::Dictionary globals;
  std::map<std::string, AppSettings> apps;
  /// What an app without an entry in `apps` gets; none gives it nothing.
  std::optional<AppSettings> otherApps;
  CompanionSettings companion;

  friend bool operator==(const Settings&, const Settings&) = default;
};

/// The four keys under which the daemon looks up an app's settings.
std::string iconKey(const std::string& app);
std::string repeatKey(const std::string& app);
std::string patternKey(const std::string& app);
std::string previewKey(const std::string& app);

/// The dictionary that answers "getPrefsDict": the globals, and four keys for every app that the
/// settings name. An app of `seenApps` that they do not name gets those of the other apps.
platform::Dictionary prefsDictionary(const Settings& settings,
                                     const std::vector<std::string>& seenApps);

}  // namespace wrixel2::settings
