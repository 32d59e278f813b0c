#pragma once

namespace wrixel2::platform::linux {

/// From now on the process ends with status 1 and one line on standard error, "PROGRAM: out of
/// memory", where memory that it cannot do without is not to be had. Nothing is unwound, and what
/// files hold stays as it is: they are replaced in one step. The text outlives the process.
void endWhenOutOfMemory(const char* program);

}  // namespace wrixel2::platform::linux
