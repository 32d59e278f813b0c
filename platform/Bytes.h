#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace wrixel2::platform {

using Bytes = std::vector<std::uint8_t>;
using ByteView = std::span<const std::uint8_t>;

/// Two lower-case hexadecimal digits per byte, without separators.
std::string hexText(ByteView bytes);

/// The form in which byte strings stand in the log: "<03000a0b 0c0d0e0f>", four bytes a group.
std::string description(ByteView bytes);

/// The value of one hexadecimal digit in either case, none for any other character.
std::optional<std::uint8_t> hexDigitValue(char character);

/// The UTF-8 bytes of a text, without a terminating NUL.
Bytes bytesOfText(std::string_view text);

}  // namespace wrixel2::platform
