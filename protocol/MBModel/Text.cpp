#include "protocol/MBModel/Text.h"

#include <algorithm>

#include "platform/Utf8.h"

namespace wrixel2::mbmodel {
namespace {

bool isBlankOrLineBreak(char32_t code) {
  return (code >= 0x09 && code <= 0x0D) || code == 0x20 || code == 0x85 || code == 0xA0 ||
         code == 0x1680 || (code >= 0x2000 && code <= 0x200A) || code == 0x2028 || code == 0x2029 ||
         code == 0x202F || code == 0x205F || code == 0x3000;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
  std::size_t begin = text.size();
  std::size_t end = 0;
  for (std::size_t index = 0; index < text.size();) {
    const auto prefix = platform::firstCharacter(text.substr(index));
    const std::size_t next = index + prefix.length;
    if (!prefix.character || !isBlankOrLineBreak(*prefix.character)) {
      begin = std::min(begin, index);
      end = next;
    }
    index = next;
  }
  return begin < end ? text.substr(begin, end - begin) : std::string_view();
}

std::size_t utf16Length(std::string_view text) {
  std::size_t units = 0;
  while (!text.empty()) {
    const auto prefix = platform::firstCharacter(text);
    if (prefix.character) {
      units += *prefix.character > 0xFFFF ? 2 : 1;
    } else {
      units += prefix.length;
    }
    text.remove_prefix(prefix.length);
  }
  return units;
}

}  // namespace wrixel2::mbmodel
