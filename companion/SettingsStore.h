#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "settings/Settings.h"

namespace wrixel2::companion {

/// The settings in force: those of the last version of the file that was good.
///
/// Before the first load, and while there is no good file, every key is absent, so that the
/// daemon's defaults hold.
class SettingsStore {
 public:
  SettingsStore(const platform::FileManager& files, platform::Log& log, std::string path)
      : files_(files), logger_(log, "SettingsStore"), path_(std::move(path)) {}

  /// Reads the file anew. Returns the names to post for what changed in the dictionary; a file with
  /// an error is reported to the log with its line, and changes nothing.
  std::vector<std::string_view> load();

  /// The app has notified. From then on the dictionary holds its keys, if there are any for it.
  void noteApp(const std::string& app);

  /// The answer to "getPrefsDict".
  platform::Dictionary prefs() const { return settings::prefsDictionary(settings_, seenApps_); }

  /// What keeps the file as it is now from being in force: "file:line: reason". Empty when it is.
  const std::string& problem() const { return problem_; }

  /// What the companion itself is to do.
  const settings::CompanionSettings& companionSettings() const { return settings_.companion; }

 private:
  /// More apps than a phone has. A program that makes identifiers up pushes out the oldest only.
  static constexpr std::size_t kMostSeenApps = 256;

  const platform::FileManager& files_;
  platform::Logger logger_;
  std::string path_;
  settings::Settings settings_;
  std::string problem_;
  std::vector<std::string> seenApps_;  ///< oldest first
};

}  // namespace wrixel2::companion
