#include "platform/linux/LogText.h"

#include <algorithm>

#include <fmt/format.h>

namespace wrixel2::platform::linux {
namespace {

bool isControl(char character) {
  const auto code = static_cast<unsigned char>(character);
  return code < 0x20 || code == 0x7F;
}

}  // namespace

std::string singleLine(std::string text) {
  if (std::ranges::none_of(text, isControl)) {
    return text;
  }
  std::string line;
  for (const char character : text) {
    if (character == '\n') {
      line += "\\n";
    } else if (character == '\t') {
      line += "\\t";
    } else if (isControl(character)) {
      line += fmt::format("\\x{:02x}", static_cast<unsigned char>(character));
    } else {
      line += character;
    }
  }
  return line;
}

}  // namespace wrixel2::platform::linux
