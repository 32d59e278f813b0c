#pragma once

#include <string>
#include <string_view>

namespace wrixel2::platform::linux {

/// Whether the text is one that the bus takes: UTF-8 without NUL (D-Bus Specification, "Basic
/// types") and, as libsystemd wants it, without noncharacters.
bool isBusText(std::string_view text);

/// The text with U+FFFD in place of whatever isBusText() objects to.
std::string busText(std::string_view text);

}  // namespace wrixel2::platform::linux
