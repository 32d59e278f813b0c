#include "platform/Utf8.h"

#include <cstdint>

namespace wrixel2::platform {
namespace {

std::uint8_t byteAt(std::string_view text, std::size_t index) {
  return static_cast<std::uint8_t>(text[index]);
}

/// How many bytes the character that begins so has; 0 for a byte that begins none.
std::size_t lengthByFirstByte(std::uint8_t first) {
  if (first < 0x80) {
    return 1;
  }
  if (first >= 0xC2 && first <= 0xDF) {
    return 2;
  }
  if (first >= 0xE0 && first <= 0xEF) {
    return 3;
  }
  return first >= 0xF0 && first <= 0xF4 ? 4 : 0;
}

/// The table of RFC 3629, 4: overlong forms, surrogates and what lies above U+10FFFF all show in
/// the second byte.
bool isSecondByte(std::uint8_t first, std::uint8_t second) {
  switch (first) {
    case 0xE0:
      return second >= 0xA0 && second <= 0xBF;
    case 0xED:
      return second >= 0x80 && second <= 0x9F;
    case 0xF0:
      return second >= 0x90 && second <= 0xBF;
    case 0xF4:
      return second >= 0x80 && second <= 0x8F;
    default:
      return second >= 0x80 && second <= 0xBF;
  }
}

}  // namespace

Utf8Prefix firstCharacter(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  const std::size_t length = lengthByFirstByte(first);
  if (length == 0) {
    return {};
  }
  char32_t code = length == 1 ? first : first & (0x7FU >> length);
  for (std::size_t index = 1; index < length; ++index) {
    if (index == text.size()) {
      return {.character = std::nullopt, .length = index, .isCutOff = true};
    }
    const std::uint8_t byte = byteAt(text, index);
    if (index == 1 ? !isSecondByte(first, byte) : (byte & 0xC0U) != 0x80) {
      return {.character = std::nullopt, .length = index, .isCutOff = false};
    }
    code = code << 6 | (byte & 0x3FU);
  }
  return {.character = code, .length = length, .isCutOff = false};
}

bool isUtf8(std::string_view text) {
  while (!text.empty()) {
    const auto prefix = firstCharacter(text);
    if (!prefix.character) {
      return false;
    }
    text.remove_prefix(prefix.length);
  }
  return true;
}

bool isControl(char32_t character) {
  const auto isIn = [character](char32_t first, char32_t last) {
    return first <= character && character <= last;
  };
  return character < 0x20 || isIn(0x7F, 0x9F) || character == 0x061C || isIn(0x200E, 0x200F) ||
         isIn(0x2028, 0x202E) || isIn(0x2066, 0x2069);
}

std::string_view utf8Prefix(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) {
    return text;
  }
  while (bytes > 0 && (byteAt(text, bytes) & 0xC0U) == 0x80) {
    --bytes;
  }
  return text.substr(0, bytes);
}

std::string utf8FromCharacter(char32_t character) {
  const auto tail = [&](unsigned shift) {
    return static_cast<char>(0x80 | (character >> shift & 0x3F));
  };
  if (character < 0x80) {
    return {static_cast<char>(character)};
  }
  if (character < 0x800) {
    return {static_cast<char>(0xC0 | character >> 6), tail(0)};
  }
  if (character < 0x10000) {
    return {static_cast<char>(0xE0 | character >> 12), tail(6), tail(0)};
  }
  return {static_cast<char>(0xF0 | character >> 18), tail(12), tail(6), tail(0)};
}

}  // namespace wrixel2::platform
