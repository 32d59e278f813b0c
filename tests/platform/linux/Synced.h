#pragma once

#include <string>
#include <vector>

namespace wrixel2::platform::linux {

/// The paths, as they were at that time, of what this process has had put on the disk (fsync and
/// fdatasync, libraries' too), in order.
std::vector<std::string>& syncedPaths();

}  // namespace wrixel2::platform::linux
