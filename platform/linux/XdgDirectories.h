#pragma once

#include <string>

#include "platform/Result.h"

namespace wrixel2::platform::linux {

/// Where the owner's files go (XDG Base Directory Specification 0.8): absolute paths without a
/// slash at the end, of the environment or by default in the home directory.
struct XdgDirectories {
  std::string config;
  std::string data;
  std::string state;

  /// The home directory is that of HOME, else of the user database. Fails where neither names one.
  static Result<XdgDirectories> ofThisUser();
};

}  // namespace wrixel2::platform::linux
