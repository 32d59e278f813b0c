#include "daemon/ShellCompanion.h"

#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

ShellCompanion::ShellCompanion(platform::MessageCenters& centers, const platform::Logger& logger)
    : logger_(logger.byFile()), center_(centers.centerNamed("org.corvale.wrixel2Ipc")) {}

platform::Result<std::unique_ptr<platform::PendingAnswer>> ShellCompanion::askForPrefsDict(
    platform::MessageCenter::AnswerHandler handler) {
  return center_->sendMessageNameForAnswer("getPrefsDict", {}, std::move(handler));
}

std::unique_ptr<platform::PendingAnswer> ShellCompanion::askForMiFitBasePath(PathHandler handler) {
  auto shared = std::make_shared<PathHandler>(std::move(handler));
  auto pending = center_->sendMessageNameForAnswer(
      "appInfo", {}, [this, shared](const platform::Result<platform::Dictionary>& appInfo) {
        (*shared)(pathIn(appInfo));
      });
  if (!pending) {
    (*shared)(pathIn(pending.error()));
    return nullptr;
  }
  return std::move(*pending);
}

std::optional<std::string> ShellCompanion::miFitBasePath() {
  return pathIn(center_->sendMessageAndReceiveReplyName("appInfo"));
}

std::optional<std::string> ShellCompanion::pathIn(
    const platform::Result<platform::Dictionary>& appInfo) const {
  if (!appInfo) {
    logger_.warning(
        fmt::format("No app info from the shell companion: {}", description(appInfo.error())));
    return std::nullopt;
  }
  return CheckedDictionary(*appInfo, "app info", logger_).text("MiFitBasePath");
}

void ShellCompanion::alertUser(std::string_view title, std::string_view message) {
  center_->sendMessageName("alertUser", {{"title", title}, {"message", message}});
}

}  // namespace wrixel2::daemon
