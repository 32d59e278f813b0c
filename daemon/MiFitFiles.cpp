#include "daemon/MiFitFiles.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

namespace {

constexpr std::string_view kPreferences = "/Library/Preferences";
constexpr std::string_view kDocuments = "/Documents";
/// Shorter numbers name other things in the app's folders.
constexpr std::size_t kShortestUserId = 6;

bool isDecimalInteger(std::string_view name) {
  if (name.starts_with('-') || name.starts_with('+')) {
    name.remove_prefix(1);
  }
  return !name.empty() &&
         std::all_of(name.begin(), name.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

MiFitFiles::MiFitFiles(const platform::FileManager& files,
                       const platform::PropertyLists& propertyLists, const platform::Logger& logger,
                       std::string basePath)
    : files_(files),
      propertyLists_(propertyLists),
      logger_(logger),
      basePath_(std::move(basePath)) {}

std::string MiFitFiles::userFile(const std::string& basePath) {
  return fmt::format("{}{}/HM.wristband.plist", basePath, kPreferences);
}

std::string MiFitFiles::keyFile(const std::string& basePath, const std::string& userId) {
  return fmt::format("{}{}/{}/BandInfoConfigStore.plist", basePath, kPreferences, userId);
}

bool MiFitFiles::isUserId(std::string_view text) {
  return !text.empty() && text != "." && text != ".." && text.find('/') == std::string_view::npos;
}

std::optional<std::string> MiFitFiles::authKey() const {
  const auto user = userId();
  if (!user) {
    logger_.warning("Cannot extract user name from MiFit");
    return std::nullopt;
  }
  return bindAuthKey(*user);
}

std::optional<std::string> MiFitFiles::userId() const {
  if (auto user = userIdFromPreferences()) {
    return user;
  }
  for (const auto folder : {kPreferences, kDocuments}) {
    if (auto user = scanForUserId(fmt::format("{}{}", basePath_, folder))) {
      return user;
    }
  }
  return std::nullopt;
}

std::optional<std::string> MiFitFiles::userIdFromPreferences() const {
  const auto path = userFile(basePath_);
  if (!files_.fileExistsAtPath(path)) {
    logger_.warning(fmt::format("Path not found: {}", path));
    return std::nullopt;
  }
  const auto plist = propertyLists_.dictionaryWithContentsOfFile(path);
  if (!plist) {
    logLoadFailure(path, plist.error());
    return std::nullopt;
  }
  auto user = CheckedDictionary(*plist, path, logger_).text("userid");
  if (user && !isUserId(*user)) {
    logger_.byFile().warning(fmt::format("\"{}\" in {} is no user's id", *user, path));
    return std::nullopt;
  }
  return user;
}

std::optional<std::string> MiFitFiles::scanForUserId(const std::string& directory) const {
  const auto names = files_.contentsOfDirectoryAtPath(directory);
  if (!names) {
    return std::nullopt;
  }
  const auto name = std::find_if(names->begin(), names->end(), [](const std::string& entry) {
    return entry.size() >= kShortestUserId && isDecimalInteger(entry);
  });
  return name != names->end() ? std::optional(*name) : std::nullopt;
}

std::optional<std::string> MiFitFiles::bindAuthKey(const std::string& userId) const {
  const auto path = keyFile(basePath_, userId);
  if (!files_.fileExistsAtPath(path)) {
    logger_.warning("Failed to fetch auth id");
    return std::nullopt;
  }
  const auto plist = propertyLists_.dictionaryWithContentsOfFile(path);
  if (!plist) {
    if (files_.fileExistsAtPath(path)) {
      logLoadFailure(path, plist.error());
    } else {
      // The app replaces its files as it likes, also between the look above and the load.
      logger_.warning(
          fmt::format("Mi Fit pref file {} doesn't exist. Using invalid band info for now", path));
    }
    return std::nullopt;
  }
  auto key = CheckedDictionary(*plist, path, logger_).text("band_bind_auth_key");
  logger_.info(fmt::format("Fetched auth info {} from plist: {}",
                           key ? logger_.log().privateText(*key) : platform::description(key),
                           path));
  return key && !key->empty() ? key : std::nullopt;
}

void MiFitFiles::logLoadFailure(const std::string& path, const platform::Error& error) const {
  logger_.byFile().error(
      fmt::format("Property list {} could not be loaded: {}", path, description(error)));
}

}  // namespace wrixel2::daemon
