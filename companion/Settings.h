#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Value.h"

namespace wrixel2::companion {

/// How one app's notifications reach the band.
struct AppSettings {
  std::int64_t icon = 0;    ///< 0: no alert
  std::int64_t repeat = 0;  ///< the band repeats once more than this
  std::int64_t pattern = 0;
  bool preview = false;  ///< whether the band shows the text

  friend bool operator==(const AppSettings&, const AppSettings&) = default;
};

/// What one settings file says. Keys that it leaves out have the daemon's own defaults.
struct Settings {
  platform::Dictionary globals;
  std::map<std::string, AppSettings> apps;
  /// What an app without an entry in `apps` gets; none gives it nothing.
  std::optional<AppSettings> otherApps;

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

}  // namespace wrixel2::companion
