#include "platform/linux/LogText.h"

#include <algorithm>

#include <fmt/format.h>

#include "platform/Utf8.h"

namespace wrixel2::platform::linux {
namespace {

bool isPlain(char character) { return character >= 0x20 && character < 0x7F; }

}  // namespace

std::string singleLine(std::string text) {
  if (std::ranges::all_of(text, isPlain)) {
    return text;
  }
  std::string line;
  for (std::string_view rest(text); !rest.empty();) {
    const auto [character, length, isCutOff] = firstCharacter(rest);
    if (character == U'\n') {
      line += "\\n";
    } else if (character == U'\t') {
      line += "\\t";
    } else if (character && !isControl(*character)) {
      line += rest.substr(0, length);
    } else if (character && *character >= 0x80) {
      line += fmt::format("\\u{:04x}", static_cast<unsigned>(*character));
    } else {
      for (const char byte : rest.substr(0, length)) {
        line += fmt::format("\\x{:02x}", static_cast<unsigned char>(byte));
      }
    }
    rest.remove_prefix(length);
  }
  return line;
}

}  // namespace wrixel2::platform::linux
