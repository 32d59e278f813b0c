#include "platform/linux/XdgDirectories.h"

#include <cerrno>
#include <cstdlib>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

namespace wrixel2::platform::linux {

namespace {

/// Relative paths do not count (as the XDG rules have it), so an unusable one is none.
std::string absolutePathIn(const char* variable) {
  const char* value = std::getenv(variable);
  return value != nullptr && value[0] == '/' ? value : "";
}

std::string homeDirectory() {
  std::string home = absolutePathIn("HOME");
  if (home.empty()) {
    if (const passwd* user = ::getpwuid(::getuid())) {
      home = user->pw_dir;
    }
  }
  return home;
}

std::string baseDirectory(const char* variable, const std::string& home, std::string_view inHome) {
  const std::string named = absolutePathIn(variable);
  return named.empty() ? home + std::string(inHome) : named;
}

}  // namespace

Result<XdgDirectories> XdgDirectories::ofThisUser() {
  const std::string home = homeDirectory();
  if (home.empty()) {
    return Error{ENOENT, "There is no home directory: set HOME to an absolute path"};
  }
  return XdgDirectories{baseDirectory("XDG_CONFIG_HOME", home, "/.config"),
                        baseDirectory("XDG_DATA_HOME", home, "/.local/share"),
                        baseDirectory("XDG_STATE_HOME", home, "/.local/state")};
}

}  // namespace wrixel2::platform::linux
