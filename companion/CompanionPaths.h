#pragma once

#include <string>

#include "platform/Result.h"

namespace wrixel2::companion {

/// Where the owner's files of this program are: below the XDG base directories, by environment or
/// by their defaults in the home directory (XDG Base Directory Specification 0.8).
struct CompanionPaths {
  std::string settingsFile;
  /// The directory in the layout of the band maker's app that holds the pairing key.
  std::string miFit;

  /// Fails where neither the environment nor the user database names a home directory.
  static platform::Result<CompanionPaths> standard();
};

}  // namespace wrixel2::companion
