#include "companion/CompanionPaths.h"

#include <cstdlib>
#include <string_view>

#include <pwd.h>
#include <unistd.h>

namespace wrixel2::companion {

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

platform::Result<CompanionPaths> CompanionPaths::standard() {
  const std::string home = homeDirectory();
  if (home.empty()) {
    return platform::Error{0, "no home directory: set HOME"};
  }
  return CompanionPaths{
      baseDirectory("XDG_CONFIG_HOME", home, "/.config") + "/wrixel2/settings.toml",
      baseDirectory("XDG_DATA_HOME", home, "/.local/share") + "/wrixel2/MiFit"};
}

}  // namespace wrixel2::companion
