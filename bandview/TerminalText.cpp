#include "bandview/TerminalText.h"

#include <algorithm>
#include <cwchar>

#include "platform/Utf8.h"

namespace wrixel2::bandview {

namespace {

struct Character {
  std::string_view bytes;
  wchar_t code = L'?';  ///< "?" for a byte that begins no character
};

Character firstCharacter(std::string_view text) {
  Character character;
  std::mbstate_t state{};
  const std::size_t length = std::mbrtowc(&character.code, text.data(), text.size(), &state);
  if (length == 0 || length > text.size()) {
    character.code = text[0] == '\0' ? L'\0' : L'?';
    character.bytes = text.substr(0, 1);
  } else {
    character.bytes = text.substr(0, length);
  }
  return character;
}

/// The longest beginning of the text with at most so many columns.
std::string_view beginning(std::string_view text, int columns) {
  std::size_t length = 0;
  while (length < text.size()) {
    const Character character = firstCharacter(text.substr(length));
    columns -= std::max(0, ::wcwidth(character.code));
    if (columns < 0) {
      break;
    }
    length += character.bytes.size();
  }
  return text.substr(0, length);
}

std::string blanks(int count) {
  return std::string(static_cast<std::size_t>(std::max(0, count)), ' ');
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    if (::wcwidth(character.code) < 0 || character.code == L'\0' ||
        platform::isControl(static_cast<char32_t>(character.code))) {
      result += ' ';
    } else if (character.code == L'?') {
      result += '?';
    } else {
      result += character.bytes;
    }
    text.remove_prefix(character.bytes.size());
  }
  return result;
}

int widthOf(std::string_view text) {
  int columns = 0;
  while (!text.empty()) {
    const Character character = firstCharacter(text);
    columns += std::max(0, ::wcwidth(character.code));
    text.remove_prefix(character.bytes.size());
  }
  return columns;
}

std::string fitted(std::string_view text, int columns) {
  if (widthOf(text) > columns) {
    const std::string cut = std::string(beginning(text, columns - 1)) + "…";
    return columns < 1 ? "" : cut + blanks(columns - widthOf(cut));
  }
  return std::string(text) + blanks(columns - widthOf(text));
}

std::string centred(std::string_view text, int columns) {
  return fitted(blanks((columns - widthOf(text)) / 2) + std::string(text), columns);
}

std::vector<std::string> wrapped(std::string_view text, int columns) {
  std::vector<std::string> lines;
  while (!text.empty() && columns > 0) {
    std::string_view line = beginning(text, columns);
    if (line.empty()) {  // one character that is wider than the line
      break;
    }
    if (line.size() < text.size() && text[line.size()] != ' ') {
      const std::size_t blank = line.rfind(' ');
      if (blank != std::string_view::npos && blank > 0) {
        line = line.substr(0, blank);
      }
    }
    lines.emplace_back(line);
    text.remove_prefix(line.size());
    text.remove_prefix(std::min(text.find_first_not_of(' '), text.size()));
  }
  return lines;
}

}  // namespace wrixel2::bandview
