#include "ctl/IconNames.h"

#include <charconv>

#include <fmt/format.h>

namespace wrixel2::ctl {

namespace {
constexpr std::int64_t kLastIcon = 30;
}

std::string iconText(std::int64_t number) {
  for (const IconName& icon : kIconNames) {
    if (icon.number == number) {
      return fmt::format("{} {}", number, icon.name);
    }
  }
  return fmt::format("{}", number);
}

platform::Result<std::int64_t> iconFromText(std::string_view text) {
  std::string names;
  for (const IconName& icon : kIconNames) {
    if (icon.name == text) {
      return icon.number;
    }
    names += fmt::format(", {}", icon.name);
  }
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number < 0 ||
      number > kLastIcon) {
    return platform::Error{
        0, fmt::format("\"{}\" is no icon: that is a number from 0 to 30{}", text, names)};
  }
  return number;
}

}  // namespace wrixel2::ctl
