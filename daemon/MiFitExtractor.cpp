#include "daemon/MiFitExtractor.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "daemon/MiFitFiles.h"

namespace wrixel2::daemon {

namespace {

/// No key on purpose: the band refuses it, and the service keeps working without the band.
constexpr std::string_view kFallbackKey = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";

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
  if (!basePath_) {
    logger_.warning("Path not found: (null)");
    logger_.warning("Cannot extract user name from MiFit");
    return std::nullopt;
  }
  return MiFitFiles(platform_.fileManager, platform_.propertyLists, logger_, *basePath_).authKey();
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

}  // namespace wrixel2::daemon
