#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileManager.h"
#include "platform/Log.h"
#include "settings/Settings.h"

namespace wrixel2::companion {

/// The settings in force: those of the last version of the file that was good, also over a restart,
/// for which a copy of it is kept.
///
/// Before the first load, and where there is no file, every key is absent, so that the daemon's
/// defaults hold.
class SettingsStore {
 public:
  using Keeper = std::function<void(const platform::Bytes& copy)>;

  /// The keeper writes the copy, and may do so later.
  SettingsStore(const platform::FileManager& files, platform::Log& log, std::string path,
                std::string copyPath, Keeper keepCopy)
      : files_(files),
        logger_(log, "SettingsStore"),
        path_(std::move(path)),
        copyPath_(std::move(copyPath)),
        keepCopy_(std::move(keepCopy)) {}

  /// Reads the file anew. Returns the names to post for what changed in the dictionary. A file with
  /// an error is reported to the log with its line and changes nothing; at the first reading the
  /// copy stands in for it.
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

  void loadCopy();
  void keep(const platform::Bytes& contents);
  platform::Bytes copyOf(const platform::Bytes& contents) const;

  const platform::FileManager& files_;
  platform::Logger logger_;
  std::string path_;
  std::string copyPath_;
  Keeper keepCopy_;
  /// What the copy is or, once it is written, will be.
  std::optional<platform::Bytes> kept_;
  /// The settings in force are somebody's choice, and not only those of before the first reading.
  bool isLoaded_ = false;
  settings::Settings settings_;
  std::string problem_;
  std::vector<std::string> seenApps_;  ///< oldest first
};

}  // namespace wrixel2::companion
