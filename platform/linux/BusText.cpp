#include "platform/linux/BusText.h"

#include "platform/Utf8.h"

namespace wrixel2::platform::linux {
namespace {

bool isBusCharacter(const Utf8Prefix& prefix) {
  const char32_t character = prefix.character.value_or(0);
  const bool isNoncharacter =
      (character >= 0xFDD0 && character <= 0xFDEF) || (character & 0xFFFE) == 0xFFFE;
  return character != 0 && !isNoncharacter;
}

}  // namespace

bool isBusText(std::string_view text) {
  while (!text.empty()) {
    const auto prefix = firstCharacter(text);
    if (!isBusCharacter(prefix)) {
      return false;
    }
    text.remove_prefix(prefix.length);
  }
  return true;
}

std::string busText(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto prefix = firstCharacter(text);
    result += isBusCharacter(prefix) ? text.substr(0, prefix.length) : kReplacementCharacter;
    text.remove_prefix(prefix.length);
  }
  return result;
}

}  // namespace wrixel2::platform::linux
