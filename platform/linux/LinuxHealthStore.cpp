#include "platform/linux/LinuxHealthStore.h"

#include <cerrno>
#include <filesystem>
#include <system_error>

#include <unistd.h>

namespace wrixel2::platform::linux {

namespace {

Error writingIsRefused() { return {EPERM, "this program does not write the health database"}; }

}  // namespace

bool isHealthDatabaseUsable(const std::string& path) {
  std::error_code error;
  if (std::filesystem::exists(path, error)) {
    return ::access(path.c_str(), R_OK | W_OK) == 0;
  }
  // The nearest directory there is, in which the others can be made.
  auto directory = std::filesystem::path(path).parent_path();
  while (directory.has_relative_path() && !std::filesystem::exists(directory, error)) {
    directory = directory.parent_path();
  }
  return std::filesystem::is_directory(directory, error) &&
         ::access(directory.c_str(), W_OK | X_OK) == 0;
}

void LinuxHealthStore::requestAuthorizationToShare(std::string_view /*type*/,
                                                   Completion completion) {
  completion(writingIsRefused());
}

void LinuxHealthStore::saveSample(const QuantitySample& /*sample*/, Completion completion) {
  completion(writingIsRefused());
}

}  // namespace wrixel2::platform::linux
