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
/// companion app's files and talks to the user. Requests wait for it, at most two seconds each;
/// that it is not running or does not answer is a warning.
class ShellCompanion {
 public:
  ShellCompanion(platform::MessageCenters& centers, const platform::Logger& logger);

  /// The settings; empty where the companion has none to give.
  platform::Dictionary prefsDict();
  /// The data directory of the band maker's app. None where that is not known.
  std::optional<std::string> miFitBasePath();
  /// Shows the user a message; nobody waits for it.
  void alertUser(std::string_view title, std::string_view message);

 private:
  platform::Logger logger_;
  std::unique_ptr<platform::MessageCenter> center_;
};

}  // namespace wrixel2::daemon
