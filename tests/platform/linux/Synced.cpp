#include "tests/platform/linux/Synced.h"

#include <array>

#include <sys/syscall.h>
#include <unistd.h>

namespace wrixel2::platform::linux {

std::vector<std::string>& syncedPaths() {
  static std::vector<std::string> paths;
  return paths;
}

namespace {

int synchronize(long call, int file) {
  std::array<char, 4096> path{};
  if (::readlink(("/proc/self/fd/" + std::to_string(file)).c_str(), path.data(), path.size() - 1) >
      0) {
    syncedPaths().emplace_back(path.data());
  }
  return static_cast<int>(::syscall(call, file));
}

}  // namespace
}  // namespace wrixel2::platform::linux

// In the C library's place.
// NOLINTBEGIN(readability-inconsistent-declaration-parameter-name)
extern "C" int fsync(int file) { return wrixel2::platform::linux::synchronize(SYS_fsync, file); }
extern "C" int fdatasync(int file) {
  return wrixel2::platform::linux::synchronize(SYS_fdatasync, file);
}
// NOLINTEND(readability-inconsistent-declaration-parameter-name)
