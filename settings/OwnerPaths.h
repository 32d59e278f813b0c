#pragma once

#include <string>

#include "platform/Result.h"

namespace wrixel2::settings {

/// Where the owner's files of this program are, below the XDG base directories.
struct OwnerPaths {
  std::string settingsFile;
  /// The companion's copy of the last good one.
  std::string settingsCopy;
  /// The directory in the layout of the band maker's app that holds the pairing key.
  std::string miFit;
  /// The apps that have notified, as the companion keeps them.
  std::string seenApps;
  /// What else the companion remembers.
  std::string companionDefaults;

  /// Fails where neither the environment nor the user database names a home directory.
  static platform::Result<OwnerPaths> standard();
};

}  // namespace wrixel2::settings
