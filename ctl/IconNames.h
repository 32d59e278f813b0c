#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Result.h"

namespace wrixel2::ctl {

struct IconName {
  std::int64_t number = 0;
  std::string_view name;
  std::string_view meaning;
};

/// The band's icons whose meaning is known; the other numbers up to 30 are pictures of the band's
/// own.
inline constexpr std::array<IconName, 6> kIconNames = {{
    {0, "none", "no alert at all"},
    {1, "buzz", "a buzz without a picture"},
    {4, "pulse", "the heart of a measurement"},
    {9, "message", "a message with its text"},
    {27, "alarm", "an alarm clock"},
    {29, "call", "a telephone with the caller's name"},
}};

/// "9 message", "12"
std::string iconText(std::int64_t number);
/// By number or name. Fails with the names.
platform::Result<std::int64_t> iconFromText(std::string_view text);

}  // namespace wrixel2::ctl
