#include "companion/SettingsStore.h"

#include <algorithm>
#include <cerrno>
#include <ranges>
#include <utility>

#include <fmt/format.h>

#include "settings/PreferenceChanges.h"
#include "settings/SettingsParser.h"

namespace wrixel2::companion {

namespace {

settings::ParsedSettings parsed(const platform::Bytes& contents) {
  return settings::parseSettings(
      std::string_view(reinterpret_cast<const char*>(contents.data()), contents.size()));
}

}  // namespace

std::vector<std::string_view> SettingsStore::load() {
  const platform::Dictionary before = prefs();
  problem_.clear();
  if (const auto contents = files_.contentsAtPath(path_); !contents) {
    if (contents.error().code == ENOENT) {
      logger_.info(fmt::format("No settings file {}: the settings stay as they are", path_));
      isLoaded_ = true;
    } else {
      problem_ = contents.error().localizedDescription;
      logger_.error(problem_);
    }
  } else {
    settings::ParsedSettings read = parsed(*contents);
    const auto lineOf = [this](const settings::SettingsProblem& problem) {
      return fmt::format("{}:{}: {}", path_, problem.line, problem.message);
    };
    for (const settings::SettingsProblem& warning : read.warnings) {
      logger_.warning(lineOf(warning));
    }
    for (const settings::SettingsProblem& error : read.errors) {
      logger_.error(lineOf(error));
    }
    if (read.errors.empty()) {
      settings_ = std::move(read.settings);
      isLoaded_ = true;
      keep(*contents);
    } else {
      problem_ = lineOf(read.errors.front());
    }
  }
  if (!problem_.empty()) {
    logger_.warning(fmt::format("{} is not used; the last good settings stay in force", path_));
    if (!isLoaded_) {
      loadCopy();
    }
  }
  return settings::preferenceChanges(before, prefs());
}

void SettingsStore::loadCopy() {
  isLoaded_ = true;
  const auto copy = files_.contentsAtPath(copyPath_);
  if (!copy) {
    if (copy.error().code != ENOENT) {
      logger_.error(copy.error().localizedDescription);
    }
    return;
  }
  const platform::Bytes head = copyOf({});
  if (!std::ranges::equal(head, *copy | std::views::take(head.size()))) {
    return;  // of another file, which --config has named
  }
  settings::ParsedSettings read = parsed(*copy);
  for (const settings::SettingsProblem& error : read.errors) {
    logger_.error(fmt::format("{}:{}: {}", copyPath_, error.line, error.message));
  }
  if (read.errors.empty()) {
    settings_ = std::move(read.settings);
  }
}

platform::Bytes SettingsStore::copyOf(const platform::Bytes& contents) const {
  const std::string head = fmt::format("# The last good version of {}\n", path_);
  platform::Bytes copy(head.begin(), head.end());
  copy.insert(copy.end(), contents.begin(), contents.end());
  return copy;
}

void SettingsStore::keep(const platform::Bytes& contents) {
  platform::Bytes copy = copyOf(contents);
  if (!kept_) {
    const auto present = files_.contentsAtPath(copyPath_);
    kept_ = present ? *present : platform::Bytes();
  }
  if (*kept_ != copy) {
    keepCopy_(copy);
    kept_ = std::move(copy);
  }
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
