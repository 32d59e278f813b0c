#include "settings/TomlLayout.h"

#include <algorithm>
#include <sstream>
#include <utility>

#include <fmt/format.h>
#include <toml++/toml.h>

namespace wrixel2::settings {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kBlanks = " \t";

bool beginsWith(const KeyPath& path, const KeyPath& prefix, std::size_t length) {
  return path.size() >= length && prefix.size() >= length &&
         std::equal(prefix.begin(), prefix.begin() + static_cast<std::ptrdiff_t>(length),
                    path.begin());
}

KeyPath behind(const KeyPath& path, std::size_t length) {
  return {path.begin() + static_cast<std::ptrdiff_t>(length), path.end()};
}

platform::Value valueOf(const toml::node& node) {
  if (const auto* flag = node.as_boolean()) {
    return flag->get();
  }
  if (const auto* integer = node.as_integer()) {
    return std::int64_t{integer->get()};
  }
  if (const auto* real = node.as_floating_point()) {
    return real->get();
  }
  if (const auto* text = node.as_string()) {
    return text->get();
  }
  if (const auto* array = node.as_array()) {
    platform::Array values;
    for (const toml::node& entry : *array) {
      values.push_back(valueOf(entry));
    }
    return values;
  }
  std::ostringstream text;
  node.visit([&text](const auto& concrete) { text << concrete; });
  return text.str();
}

/// Turns lines and columns into bytes: columns count characters, of which a byte order mark is
/// none.
class Positions {
 public:
  explicit Positions(std::string_view text) : text_(text) {
    lines_.push_back(text.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0);
    for (std::size_t i = 0; i < text.size(); ++i) {
      if (text[i] == '\n') {
        lines_.push_back(i + 1);
      }
    }
  }

  std::size_t of(const toml::source_position& position) const {
    if (position.line == 0 || position.line > lines_.size()) {
      return text_.size();
    }
    std::size_t at = lines_[position.line - 1];
    for (auto column = position.column; column > 1 && at < text_.size(); --column) {
      ++at;
      while (at < text_.size() && (static_cast<unsigned char>(text_[at]) & 0xC0U) == 0x80U) {
        ++at;
      }
    }
    return at;
  }

 private:
  std::string_view text_;
  std::vector<std::size_t> lines_;
};

/// The table that a header names; [[name]] gets a last key that no entry has.
KeyPath pathOfHeader(std::string_view line) {
  KeyPath path;
  try {
    const toml::table document = toml::parse(line);
    const toml::table* table = &document;
    while (table != nullptr && !table->empty()) {
      const auto first = table->begin();  // what it points to is part of it
      path.emplace_back(first->first.str());
      if (first->second.is_array()) {
        path.emplace_back("[[]]");
      }
      table = first->second.as_table();
    }
  } catch (const toml::parse_error&) {
    path.clear();  // not reached: the whole text has been read as TOML
  }
  return path;
}

}  // namespace

class TomlLayout::Collector {
 public:
  explicit Collector(TomlLayout& layout) : layout_(layout), positions_(layout.text_) {}

  void collect(const toml::table& table, const KeyPath& above, bool isInline) {
    for (const auto& [key, node] : table) {
      KeyPath path = above;
      path.emplace_back(key.str());
      const std::size_t begin = positions_.of(node.source().begin);
      const std::size_t end = positions_.of(node.source().end);
      if (const toml::table* inner = node.as_table()) {
        if (inner->is_inline() && layout_.text_.substr(begin, 1) == "{") {
          layout_.inlineTables_.push_back({path, begin, end, inner->empty()});
        }
        collect(*inner, path, isInline || inner->is_inline());
      } else {
        layout_.entries_.push_back({path, valueOf(node), key.source().begin.line,
                                    positions_.of(key.source().begin), begin, end, isInline});
      }
    }
  }

 private:
  TomlLayout& layout_;
  Positions positions_;
};

platform::Result<TomlLayout> TomlLayout::of(std::string_view text) {
  TomlLayout layout(text);
  try {
    Collector(layout).collect(toml::parse(text), {}, false);
  } catch (const toml::parse_error& error) {
    return platform::Error{
        0, fmt::format("line {}: {}", error.source().begin.line, error.description())};
  }
  std::sort(layout.entries_.begin(), layout.entries_.end(),
            [](const Entry& one, const Entry& other) { return one.begin < other.begin; });
  layout.findSections();
  return layout;
}

void TomlLayout::findSections() {
  sections_.push_back({{}, 0, 0});
  for (std::size_t begin = 0; begin < text_.size(); begin = lineEnd(begin)) {
    const std::size_t first = text_.find_first_not_of(kBlanks, begin);
    if (first == std::string_view::npos || text_[first] != '[' || isInsideValue(first)) {
      continue;
    }
    const std::size_t end = lineEnd(begin);
    sections_.push_back({pathOfHeader(text_.substr(begin, end - begin)), begin, end});
  }
}

bool TomlLayout::isInsideValue(std::size_t position) const {
  const auto holds = [position](const auto& part) {
    return part.begin <= position && position < part.end;
  };
  return std::any_of(entries_.begin(), entries_.end(), holds) ||
         std::any_of(inlineTables_.begin(), inlineTables_.end(), holds);
}

const TomlLayout::Entry* TomlLayout::find(const KeyPath& path) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&path](const Entry& entry) { return entry.path == path; });
  return found != entries_.end() ? &*found : nullptr;
}

std::size_t TomlLayout::sectionIndexAt(std::size_t position) const {
  std::size_t index = 0;
  while (index + 1 < sections_.size() && sections_[index + 1].begin <= position) {
    ++index;
  }
  return index;
}

std::size_t TomlLayout::lineBegin(std::size_t position) const {
  const std::size_t before =
      position == 0 ? std::string_view::npos : text_.rfind('\n', position - 1);
  if (before != std::string_view::npos) {
    return before + 1;
  }
  return text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0;
}

std::size_t TomlLayout::lineEnd(std::size_t position) const {
  const std::size_t end = text_.find('\n', position);
  return end == std::string_view::npos ? text_.size() : end + 1;
}

std::string TomlLayout::lineBreak() const {
  const std::size_t first = text_.find('\n');
  return first != std::string_view::npos && first > 0 && text_[first - 1] == '\r' ? "\r\n" : "\n";
}

std::string TomlLayout::indentationAt(std::size_t position) const {
  const std::size_t begin = lineBegin(position);
  const std::size_t end = text_.find_first_not_of(kBlanks, begin);
  return std::string(text_.substr(begin, (end == std::string_view::npos ? begin : end) - begin));
}

platform::Result<std::string> TomlLayout::withValue(const KeyPath& path,
                                                    const std::string& literal) const {
  if (const Entry* entry = find(path)) {
    std::string text(text_);
    return text.replace(entry->begin, entry->end - entry->begin, literal);
  }
  const auto lineBehind = [&](std::size_t length) {
    return tomlPath(behind(path, length)) + " = " + literal;
  };
  const KeyPath table(path.begin(), path.end() - 1);
  for (std::size_t index = 0; index < sections_.size(); ++index) {
    if (sections_[index].path == table) {
      return withEntryInSection(index, lineBehind(table.size()));
    }
  }
  if (const InlineTable* above = inlineTableAbove(path)) {
    if (text_.substr(above->end - 1, 1) != "}") {
      return platform::Error{
          0, fmt::format("the inline table {} is not understood", tomlPath(above->path))};
    }
    return withEntryInInlineTable(*above, lineBehind(above->path.size()));
  }
  if (const Entry* neighbour = dottedNeighbour(table)) {
    const Section& section = sections_[sectionIndexAt(neighbour->begin)];
    return withLineAfter(neighbour->end,
                         indentationAt(neighbour->keyBegin) + lineBehind(section.path.size()));
  }
  return withNewSection(table, lineBehind(table.size()));
}

const TomlLayout::InlineTable* TomlLayout::inlineTableAbove(const KeyPath& path) const {
  const InlineTable* deepest = nullptr;
  for (const InlineTable& table : inlineTables_) {
    if (beginsWith(path, table.path, table.path.size()) &&
        (deepest == nullptr || deepest->path.size() < table.path.size())) {
      deepest = &table;
    }
  }
  return deepest;
}

/// The last entry that spells the table, or the deepest one above it, in its own key: a table
/// that is made so cannot be made again by a header.
const TomlLayout::Entry* TomlLayout::dottedNeighbour(const KeyPath& table) const {
  for (std::size_t length = table.size(); length > 0; --length) {
    for (auto entry = entries_.rbegin(); entry != entries_.rend(); ++entry) {
      const Section& section = sections_[sectionIndexAt(entry->begin)];
      if (!entry->isInInlineTable && section.path.size() < length && entry->path.size() > length &&
          beginsWith(entry->path, table, length)) {
        return &*entry;
      }
    }
  }
  return nullptr;
}

std::string TomlLayout::withLineAfter(std::size_t position, const std::string& line) const {
  std::string text(text_);
  const std::size_t end = lineEnd(position);
  const bool isUnended = end > 0 && text_[end - 1] != '\n';
  return text.insert(end, (isUnended ? lineBreak() : "") + line + lineBreak());
}

std::string TomlLayout::withEntryInSection(std::size_t index, const std::string& line) const {
  const Section& section = sections_[index];
  const Entry* last = nullptr;
  std::size_t end = section.bodyBegin;
  for (const Entry& entry : entries_) {
    if (sectionIndexAt(entry.begin) == index) {
      last = &entry;
      end = std::max(end, entry.end);
    }
  }
  for (const InlineTable& table : inlineTables_) {
    if (sectionIndexAt(table.begin) == index) {
      end = std::max(end, table.end);
    }
  }
  if (last != nullptr) {
    return withLineAfter(end, indentationAt(last->keyBegin) + line);
  }
  if (index == 0 && end == 0) {
    return withFirstEntry(line);
  }
  return withLineAfter(end > section.bodyBegin ? end : section.begin,
                       indentationAt(section.begin) + line);
}

/// Behind the comment that a file opens with, if a blank line ends it; else at the very begin.
std::string TomlLayout::withFirstEntry(const std::string& line) const {
  std::size_t position = lineBegin(0);
  std::size_t begin = position;
  while (begin < text_.size() && text_[begin] == '#') {
    begin = lineEnd(begin);
  }
  const std::string_view next = text_.substr(begin, lineEnd(begin) - begin);
  const bool isBlank = !next.empty() && next.find_first_not_of(" \t\r\n") == std::string_view::npos;
  if (begin > position && (isBlank || begin == text_.size())) {
    position = isBlank ? lineEnd(begin) : begin;
  }
  const bool isUnended = position > 0 && position == text_.size() && text_.back() != '\n';
  const bool isBeforeHeader = position < text_.size();
  std::string text(text_);
  return text.insert(position, (isUnended ? lineBreak() : "") + line + lineBreak() +
                                   (isBeforeHeader ? lineBreak() : ""));
}

std::string TomlLayout::withNewSection(const KeyPath& table, const std::string& line) const {
  std::string text(text_);
  const std::string lineEnding = lineBreak();
  if (!text.empty() && text.back() != '\n') {
    text += lineEnding;
  }
  const std::size_t lastLine = text.empty() ? 0 : lineBegin(text.size() - 1);
  if (!text.empty() && text.find_first_not_of(" \t\r\n", lastLine) != std::string::npos) {
    text += lineEnding;
  }
  return text + "[" + tomlPath(table) + "]" + lineEnding + line + lineEnding;
}

std::string TomlLayout::withEntryInInlineTable(const InlineTable& table,
                                               const std::string& line) const {
  std::string text(text_);
  if (table.isEmpty) {
    return text.replace(table.begin, table.end - table.begin, "{ " + line + " }");
  }
  const std::size_t last = text.find_last_not_of(" \t\r\n", table.end - 2);
  return text.insert(last + 1, ", " + line);
}

platform::Result<std::string> TomlLayout::without(const Entry& entry) const {
  std::string text(text_);
  if (!entry.isInInlineTable) {
    const std::size_t begin = lineBegin(entry.keyBegin);
    return text.erase(begin, lineEnd(entry.end) - begin);
  }
  const InlineTable* table = inlineTableAbove(entry.path);
  if (table == nullptr || table->path.size() + 1 != entry.path.size()) {
    return platform::Error{
        0, fmt::format("{} is a dotted key in an inline table, which is not taken apart; write the "
                       "table with a header of its own",
                       tomlPath(entry.path))};
  }
  const std::size_t next = text.find_first_not_of(kBlanks, entry.end);
  if (text[next] == ',') {
    const std::size_t behindComma = text.find_first_not_of(kBlanks, next + 1);
    return text.erase(entry.keyBegin, behindComma - entry.keyBegin);
  }
  const std::size_t before = text.find_last_not_of(kBlanks, entry.keyBegin - 1);
  const std::size_t begin = text[before] == ',' ? before : entry.keyBegin;
  return text.erase(begin, entry.end - begin);
}

}  // namespace wrixel2::settings
