#pragma once

#include <string>

namespace wrixel2::platform::linux {

/// The text as one line without control characters, so that nothing which a message brings along
/// reads as an entry of its own: a line break becomes "\n", a tab "\t", any other "\x1b".
std::string singleLine(std::string text);

}  // namespace wrixel2::platform::linux
