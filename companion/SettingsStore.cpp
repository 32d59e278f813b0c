#include "companion/SettingsStore.h"

#include <algorithm>
#include <cerrno>

#include <fmt/format.h>

#include "settings/PreferenceChanges.h"
#include "settings/SettingsParser.h"

namespace wrixel2::companion {

std::vector<std::string_view> SettingsStore::load() {
  problem_.clear();
  const auto contents = files_.contentsAtPath(path_);
  if (!contents) {
    if (contents.error().code == ENOENT) {
      logger_.info(fmt::format("No settings file {}: the settings stay as they are", path_));
    } else {
      problem_ = contents.error().localizedDescription;
      logger_.error(problem_);
    }
    return {};
  }
  settings::ParsedSettings parsed = settings::parseSettings(
      std::string_view(reinterpret_cast<const char*>(contents->data()), contents->size()));
  for (const settings::SettingsProblem& warning : parsed.warnings) {
    logger_.warning(fmt::format("{}:{}: {}", path_, warning.line, warning.message));
  }
  if (!parsed.errors.empty()) {
    const auto lineOf = [this](const settings::SettingsProblem& error) {
      return fmt::format("{}:{}: {}", path_, error.line, error.message);
    };
    problem_ = lineOf(parsed.errors.front());
    for (const settings::SettingsProblem& error : parsed.errors) {
      logger_.error(lineOf(error));
    }
    logger_.warning(fmt::format("{} is not used; the last good settings stay in force", path_));
    return {};
  }
  const platform::Dictionary before = prefs();
  settings_ = std::move(parsed.settings);
  return settings::preferenceChanges(before, prefs());
}

void SettingsStore::noteApp(const std::string& app) {
  if (std::find(seenApps_.begin(), seenApps_.end(), app) != seenApps_.end()) {
    return;
  }
  if (seenApps_.size() == kMostSeenApps) {
    seenApps_.erase(seenApps_.begin());
  }
  seenApps_.push_back(app);
}

}  // namespace wrixel2::companion
