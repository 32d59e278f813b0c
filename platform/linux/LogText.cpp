#include "platform/linux/LogText.h"

#include <fmt/format.h>

namespace wrixel2::platform::linux {

std::string singleLine(std::string_view text) {
  std::string line;
  line.reserve(text.size());
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '\n') {
      line += "\\n";
    } else if (character == '\t') {
      line += "\\t";
    } else if (code < 0x20 || code == 0x7F) {
      line += fmt::format("\\x{:02x}", code);
    } else {
      line += character;
    }
  }
  return line;
}

}  // namespace wrixel2::platform::linux
