#pragma once

#include <string>

namespace wrixel2::platform {

/// What the program is told of the system it runs on.
struct SystemInfo {
  /// "9.0": what the platform offers, by version; see --system-version.
  std::string systemVersion = "9.0";
  /// The lock file: one MAC address as plain text.
  std::string lockFilePath;
  /// The shell's Info.plist.
  std::string infoPlistPath;
};

}  // namespace wrixel2::platform
