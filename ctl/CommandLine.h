#pragma once

#include <string>
#include <vector>

#include "ctl/Context.h"
#include "ctl/ExitStatus.h"

namespace wrixel2::ctl {

/// Does what the words after the program's name say.
ExitStatus runCommandLine(std::vector<std::string> words, Context context);

}  // namespace wrixel2::ctl
