#include "ctl/TextRows.h"

#include <algorithm>
#include <cstddef>

#include "platform/Utf8.h"

namespace wrixel2::ctl {

namespace {

std::size_t widthOf(std::string_view text) {
  return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char character) {
    return (static_cast<unsigned char>(character) & 0xC0U) != 0x80U;
  }));
}

}  // namespace

std::string printable(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    const auto first = platform::firstCharacter(text);
    if (!first.character) {
      result += '?';
    } else if (platform::isControl(*first.character)) {
      result += ' ';
    } else {
      result += text.substr(0, first.length);
    }
    text.remove_prefix(first.length);
  }
  return result;
}

std::string alignedRows(const std::vector<std::vector<std::string>>& rows) {
  std::vector<std::size_t> widths;
  for (const auto& row : rows) {
    widths.resize(std::max(widths.size(), row.size()));
    for (std::size_t i = 0; i < row.size(); ++i) {
      widths[i] = std::max(widths[i], widthOf(row[i]));
    }
  }
  std::string text;
  for (const auto& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i];
      line.append(widths[i] - widthOf(row[i]) + 2, ' ');
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += line + '\n';
  }
  return text;
}

}  // namespace wrixel2::ctl
