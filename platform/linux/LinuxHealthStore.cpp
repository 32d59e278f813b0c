#include "platform/linux/LinuxHealthStore.h"

#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace wrixel2::platform::linux {

bool LinuxHealthStore::isHealthDataAvailable() const {
  std::error_code error;
  if (std::filesystem::exists(databasePath_, error)) {
    return ::access(databasePath_.c_str(), R_OK | W_OK) == 0;
  }
  // The nearest directory there is, in which the others can be made.
  auto directory = std::filesystem::path(databasePath_).parent_path();
  while (directory.has_relative_path() && !std::filesystem::exists(directory, error)) {
    directory = directory.parent_path();
  }
  return std::filesystem::is_directory(directory, error) &&
         ::access(directory.c_str(), W_OK | X_OK) == 0;
}

}  // namespace wrixel2::platform::linux
