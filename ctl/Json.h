#pragma once

#include <cstdint>
#include <string>

#include "platform/Value.h"

namespace wrixel2::ctl {

enum class JsonLayout : std::uint8_t { oneLine, indented };

/// The value as JSON (RFC 8259), without a line break at the end. Texts become valid UTF-8 and
/// carry no control characters; a real that is no number is null, data is a text of hexadecimal
/// digits, a date its Unix seconds. Members stand in the order of their names.
std::string jsonText(const platform::Value& value, JsonLayout layout);

}  // namespace wrixel2::ctl
