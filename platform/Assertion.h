#pragma once

#include <string_view>

namespace wrixel2::platform {

/// Ends the process with the message on standard error: for misuse by our own code only, never for
/// what the radio, the bus or a file says.
[[noreturn]] void assertionFailure(std::string_view message);

}  // namespace wrixel2::platform
