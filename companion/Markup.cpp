#include "companion/Markup.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "platform/Utf8.h"

namespace wrixel2::companion {

namespace {

bool isLetter(char c) { return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z'); }
bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isBlank(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }

/// Longer ones are no tags, so that the time taken stays in proportion to the text.
constexpr std::size_t kLongestTag = 512;

/// The length of the tag or comment at the beginning of the text; 0 where there is none.
std::size_t tagLength(std::string_view text) {
  text = text.substr(0, kLongestTag);
  if (text.starts_with("<!--")) {
    const std::size_t end = text.find("-->", 4);
    return end == std::string_view::npos ? 0 : end + 3;
  }
  std::size_t i = 1;
  if (i < text.size() && text[i] == '/') {
    ++i;
  }
  if (i >= text.size() || !isLetter(text[i])) {
    return 0;
  }
  while (i < text.size() && (isLetter(text[i]) || isDigit(text[i]))) {
    ++i;
  }
  // A name is followed by a blank or the tag's end; "<anna@example.org>" is an address.
  if (i >= text.size() || (!isBlank(text[i]) && text[i] != '/' && text[i] != '>')) {
    return 0;
  }
  char quote = '\0';
  for (; i < text.size(); ++i) {
    if (quote != '\0') {
      quote = text[i] == quote ? '\0' : quote;
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == '>') {
      return i + 1;
    } else if (text[i] == '<') {
      return 0;
    }
  }
  return 0;
}

bool isLineBreak(std::string_view tag) {
  return tag.size() >= 4 && (tag[1] == 'b' || tag[1] == 'B') && (tag[2] == 'r' || tag[2] == 'R') &&
         !isLetter(tag[3]) && !isDigit(tag[3]);
}

/// The number of "#65" or "#x41" if it is that of a character which a text can hold.
std::optional<std::uint32_t> numberedCharacter(std::string_view name) {
  name.remove_prefix(1);
  unsigned base = 10;
  if (!name.empty() && (name[0] == 'x' || name[0] == 'X')) {
    base = 16;
    name.remove_prefix(1);
  }
  if (name.empty()) {
    return std::nullopt;
  }
  std::uint32_t number = 0;
  for (const char c : name) {
    unsigned digit = 0;
    if (isDigit(c)) {
      digit = static_cast<unsigned>(c - '0');
    } else if (base == 16 && ((c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'))) {
      digit = static_cast<unsigned>((c | 0x20) - 'a') + 10;
    } else {
      return std::nullopt;
    }
    number = number * base + digit;
    if (number > 0x10FFFF) {
      return std::nullopt;
    }
  }
  const bool isSurrogate = number >= 0xD800 && number <= 0xDFFF;
  if (number == 0 || isSurrogate) {
    return std::nullopt;
  }
  return number;
}

/// Decodes the character reference at the beginning of the text, and gives its length; 0 where
/// there is none.
std::size_t decodeReference(std::string_view text, std::string& decoded) {
  static constexpr std::array<std::pair<std::string_view, std::uint32_t>, 6> kNames = {{
      {"amp", '&'},
      {"lt", '<'},
      {"gt", '>'},
      {"quot", '"'},
      {"apos", '\''},
      {"nbsp", 0xA0},
  }};
  static constexpr std::size_t kLongest = 12;
  const std::size_t end = text.substr(0, kLongest).find(';');
  if (end == std::string_view::npos || end < 2) {
    return 0;
  }
  const std::string_view name = text.substr(1, end - 1);
  if (name[0] == '#') {
    if (const auto character = numberedCharacter(name)) {
      decoded += platform::utf8FromCharacter(*character);
      return end + 1;
    }
    return 0;
  }
  for (const auto& [known, character] : kNames) {
    if (known == name) {
      decoded += platform::utf8FromCharacter(character);
      return end + 1;
    }
  }
  return 0;
}

}  // namespace

std::string textWithoutMarkup(std::string_view markup) {
  std::string text;
  text.reserve(markup.size());
  while (!markup.empty()) {
    std::size_t length = 0;
    if (markup[0] == '<') {
      length = tagLength(markup);
      if (length > 0 && isLineBreak(markup)) {
        text.push_back('\n');
      }
    } else if (markup[0] == '&') {
      length = decodeReference(markup, text);
    }
    if (length == 0) {
      text.push_back(markup[0]);
      length = 1;
    }
    markup.remove_prefix(length);
  }
  return text;
}

}  // namespace wrixel2::companion
