#pragma once

#include <string>

namespace wrixel2::platform::linux {

/// The text as one line of UTF-8 without control characters (see isControl()), so that nothing
/// which a message brings along reads as an entry of its own or moves a terminal: a line break
/// becomes
/// "\n", a tab "\t", any other "\x1b" or "\u202e", and so do bytes that are not UTF-8 ("\xff").
std::string singleLine(std::string text);

}  // namespace wrixel2::platform::linux
