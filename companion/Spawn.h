#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

#include "platform/Result.h"

namespace wrixel2::companion {

// A program is started with the environment and nothing else of ours: no input, no other
// descriptors, no blocked or ignored signals. It is looked for on the PATH unless its name has a
// slash. What comes back is the process, which the caller waits for, or an error with errno's
// number (ENOENT: there is no such program).

/// The descriptor becomes its standard output; its standard error goes nowhere.
platform::Result<pid_t> spawnWithOutput(const std::vector<std::string>& command, int output);

/// In a session of its own, so that it outlives us. Its output goes nowhere, its errors where ours
/// go.
platform::Result<pid_t> spawnDetached(const std::vector<std::string>& command);

}  // namespace wrixel2::companion
