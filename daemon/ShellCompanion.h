#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/Value.h"

namespace wrixel2::daemon {

/// The program beside the daemon that runs in the phone's shell: it keeps the settings, knows the
/// companion app's files and talks to the user.
class ShellCompanion {
 public:
  ShellCompanion(platform::MessageCenters& centers, const platform::Logger& logger);

  /// Asks for the settings. For the answer and its errors see MessageCenter.
  [[nodiscard]] platform::Result<std::unique_ptr<platform::PendingAnswer>> askForPrefsDict(
      platform::MessageCenter::AnswerHandler handler);
  /// Asks for the data directory of the band maker's app. None where that is not known, which is a
  /// warning.
  using PathHandler = platform::UniqueFunction<void(const std::optional<std::string>& path)>;
  [[nodiscard]] std::unique_ptr<platform::PendingAnswer> askForMiFitBasePath(PathHandler handler);
  /// The same, at once: waits for the answer, at most two seconds.
  std::optional<std::string> miFitBasePath();
  /// Shows the user a message; nobody waits for it.
  void alertUser(std::string_view title, std::string_view message);

 private:
  std::optional<std::string> pathIn(const platform::Result<platform::Dictionary>& appInfo) const;

  platform::Logger logger_;
  std::unique_ptr<platform::MessageCenter> center_;
};

}  // namespace wrixel2::daemon
