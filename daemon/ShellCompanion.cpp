#include "daemon/ShellCompanion.h"

#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"

namespace wrixel2::daemon {

ShellCompanion::ShellCompanion(platform::MessageCenters& centers, const platform::Logger& logger)
    : logger_(logger), center_(centers.centerNamed("org.corvale.wrixel2Ipc")) {}

platform::Dictionary ShellCompanion::prefsDict() {
  auto reply = center_->sendMessageAndReceiveReplyName("getPrefsDict");
  if (!reply) {
    logger_.warning(fmt::format("No settings from the shell companion, using the defaults: {}",
                                description(reply.error())));
    return {};
  }
  return std::move(*reply);
}

std::optional<std::string> ShellCompanion::miFitBasePath() {
  const auto reply = center_->sendMessageAndReceiveReplyName("appInfo");
  if (!reply) {
    logger_.warning(
        fmt::format("No app info from the shell companion: {}", description(reply.error())));
    return std::nullopt;
  }
  return CheckedDictionary(*reply, "app info", logger_).text("MiFitBasePath");
}

void ShellCompanion::alertUser(std::string_view title, std::string_view message) {
  center_->sendMessageName("alertUser", {{"title", title}, {"message", message}});
}

}  // namespace wrixel2::daemon
