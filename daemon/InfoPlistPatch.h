#pragma once

#include "platform/Log.h"
#include "platform/Platform.h"

namespace wrixel2::daemon {

/// Adds the health-data usage descriptions to the shell's Info.plist, which the shell process needs
/// before it may write to the health store. The file is backed up beside itself first, once. Its
/// failures are log lines: without the descriptions only the health store stays shut.
void patchInfoPlist(const platform::Platform& platform, const platform::Logger& logger);

}  // namespace wrixel2::daemon
