#include "daemon/InfoPlistPatch.h"

#include <string>
#include <string_view>

#include <fmt/format.h>

namespace wrixel2::daemon {

namespace {

constexpr std::string_view kUpdateKey = "NSHealthUpdateUsageDescription";
constexpr std::string_view kShareKey = "NSHealthShareUsageDescription";
constexpr std::string_view kUsageDescription = "Needed for Wrixel2";

/// False where the file must not be touched, because no copy of it could be made.
bool backUp(const std::string& path, platform::FileManager& files, const platform::Logger& logger) {
  const auto backup = path + ".WX2bak";
  if (!files.isReadableFileAtPath(path) || files.isReadableFileAtPath(backup)) {
    logger.info("Info.plist doesn't exist or already backed up");
    return true;
  }
  if (const auto error = files.copyItemAtPath(path, backup)) {
    logger.error(fmt::format("Failed to backup the Info.plist, {}", description(*error)));
    return false;
  }
  logger.info("Info.plist successfully backed up");
  return true;
}

}  // namespace

void patchInfoPlist(const platform::Platform& platform, const platform::Logger& logger) {
  const auto& path = platform.systemInfo.infoPlistPath;
  if (!backUp(path, platform.fileManager, logger)) {
    return;
  }
  auto plist = platform.propertyLists.dictionaryWithContentsOfFile(path);
  if (!plist) {
    // Writing now would replace what is there by the two keys alone.
    logger.byFile().error(fmt::format("Info.plist could not be loaded, left as it is: {}",
                                      description(plist.error())));
    return;
  }
  if (plist->contains(kUpdateKey) && plist->contains(kShareKey)) {
    return;
  }
  plist->insert_or_assign(std::string(kUpdateKey), kUsageDescription);
  plist->insert_or_assign(std::string(kShareKey), kUsageDescription);
  if (platform.propertyLists.writeToFileAtomically(path, *plist)) {
    logger.error(fmt::format("Info.plist file not written: {}", path));
  } else {
    logger.info(fmt::format("Health keys added to: {}", path));
  }
}

}  // namespace wrixel2::daemon
