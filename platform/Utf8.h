#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace wrixel2::platform {

/// What a text begins with.
struct Utf8Prefix {
  /// The character; none where the bytes are not UTF-8 (RFC 3629: no surrogates, no overlong
  /// forms).
  std::optional<char32_t> character;
  /// The character's bytes. Of what is not UTF-8, the bytes that do begin a character but do not
  /// end it, or a single byte that begins none: what a reader replaces or skips as one.
  std::size_t length = 1;
  /// The text ends in the middle of the character.
  bool isCutOff = false;
};

/// Of a text that is not empty.
Utf8Prefix firstCharacter(std::string_view text);

bool isUtf8(std::string_view text);

/// Whether a terminal, or whatever else shows texts, obeys the character instead of showing it:
/// C0 and C1 controls, ends of lines, and what turns the order of the characters around.
bool isControl(char32_t character);

/// What is kept of anything that another program says, in bytes: of names by which things are told
/// apart, and of texts for people.
inline constexpr std::size_t kLongestIdentifier = 255;
inline constexpr std::size_t kLongestText = 4096;

/// The beginning of the text that has at most so many bytes and cuts no character in two.
std::string_view utf8Prefix(std::string_view text, std::size_t bytes);

/// The bytes of a character, which is at most U+10FFFF.
std::string utf8FromCharacter(char32_t character);

/// U+FFFD, which stands where bytes are not UTF-8.
inline constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

}  // namespace wrixel2::platform
