#include "daemon/MiFitExtractor.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

namespace {

/// No key on purpose: the band refuses it, and the service keeps working without the band.
constexpr std::string_view kFallbackKey = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";
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

MiFitExtractor::MiFitExtractor(const platform::Platform& platform)
    : platform_(platform),
      logger_(platform.log, "MiFitExtractor"),
      companion_(platform.messageCenters, logger_) {}

std::string MiFitExtractor::getMiFitAuthId() {
  if (auto key = extractAuthKey()) {
    authKey_ = std::move(key);
  } else if (!authKey_) {
    logger_.warning("Cannot extract auth key from MiFit");
    authKey_ = kFallbackKey;
  }
  return *authKey_;
}

std::optional<std::string> MiFitExtractor::extractAuthKey() {
  findBasePath();
  const auto user = userId();
  if (!user) {
    logger_.warning("Cannot extract user name from MiFit");
    return std::nullopt;
  }
  return bindAuthKey(*user);
}

void MiFitExtractor::findBasePath() {
  if (basePath_ && platform_.fileManager.fileExistsAtPath(*basePath_)) {
    return;
  }
  logger_.warning(fmt::format("MiFit path: {} doesn't exist, fetching a new one",
                              platform::description(basePath_)));
  basePath_ = companion_.miFitBasePath();
  if (basePath_ && basePath_->empty()) {
    basePath_.reset();  // else the paths below would be the system's own folders
  }
}

std::optional<std::string> MiFitExtractor::userId() const {
  if (!basePath_) {
    logger_.warning("Path not found: (null)");
    return std::nullopt;
  }
  if (auto user = userIdFromPreferences()) {
    return user;
  }
  for (const auto folder : {kPreferences, kDocuments}) {
    if (auto user = scanForUserId(fmt::format("{}{}", *basePath_, folder))) {
      return user;
    }
  }
  return std::nullopt;
}

std::optional<std::string> MiFitExtractor::userIdFromPreferences() const {
  const auto path = fmt::format("{}{}/HM.wristband.plist", *basePath_, kPreferences);
  if (!platform_.fileManager.fileExistsAtPath(path)) {
    logger_.warning(fmt::format("Path not found: {}", path));
    return std::nullopt;
  }
  const auto plist = platform_.propertyLists.dictionaryWithContentsOfFile(path);
  if (!plist) {
    logLoadFailure(path, plist.error());
    return std::nullopt;
  }
  return CheckedDictionary(*plist, path, logger_).text("userid");
}

std::optional<std::string> MiFitExtractor::scanForUserId(const std::string& directory) const {
  const auto names = platform_.fileManager.contentsOfDirectoryAtPath(directory);
  if (!names) {
    return std::nullopt;
  }
  const auto name = std::find_if(names->begin(), names->end(), [](const std::string& entry) {
    return entry.size() >= kShortestUserId && isDecimalInteger(entry);
  });
  return name != names->end() ? std::optional(*name) : std::nullopt;
}

std::optional<std::string> MiFitExtractor::bindAuthKey(const std::string& userId) const {
  const auto path =
      fmt::format("{}{}/{}/BandInfoConfigStore.plist", *basePath_, kPreferences, userId);
  if (!platform_.fileManager.fileExistsAtPath(path)) {
    logger_.warning("Failed to fetch auth id");
    return std::nullopt;
  }
  const auto plist = platform_.propertyLists.dictionaryWithContentsOfFile(path);
  if (!plist) {
    if (platform_.fileManager.fileExistsAtPath(path)) {
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
                           key ? platform_.log.privateText(*key) : platform::description(key),
                           path));
  return key && !key->empty() ? key : std::nullopt;
}

void MiFitExtractor::logLoadFailure(const std::string& path, const platform::Error& error) const {
  logger_.error(fmt::format("Property list {} could not be loaded: {}", path, description(error)));
}

}  // namespace wrixel2::daemon
