#pragma once

#include <string_view>

namespace wrixel2::platform::linux {

/// From now on nothing but a signal that is meant for it ends the process without a word.
///
/// Where memory that it cannot do without is not to be had, it ends as endProcess() says: nothing
/// is unwound, and what files hold stays as it is, since they are replaced in one step. A write
/// that fails (nobody reads the log any more, a file may not be that large) is an error and no
/// signal. And every large block of memory goes back to the system when it is freed: what one large
/// message took is not kept for the next. The program's name outlives the process.
void beginProcess(const char* program);

/// Ends the process with status 1 and one line on standard error, "PROGRAM: WHY", where it cannot
/// go on and nobody could be given the error. Takes no memory.
[[noreturn]] void endProcess(std::string_view why);

}  // namespace wrixel2::platform::linux
