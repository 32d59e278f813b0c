#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Result.h"
#include "platform/Value.h"
#include "settings/SettingKeys.h"

namespace wrixel2::settings {

/// Where everything stands in a TOML text. Positions are bytes from the text's begin; ends are
/// behind the last byte. Refers to the text, which outlives it unchanged.
class TomlLayout {
 public:
  struct Entry {
    KeyPath path;
    platform::Value value;  ///< dates and times as texts
    std::uint32_t line = 0;
    std::size_t keyBegin = 0;  ///< of its own key, behind the dots
    std::size_t begin = 0;     ///< of the value
    std::size_t end = 0;
    bool isInInlineTable = false;
  };
  struct InlineTable {
    KeyPath path;
    std::size_t begin = 0;  ///< at "{"
    std::size_t end = 0;    ///< behind "}"
    bool isEmpty = false;
  };
  /// A table's header with what follows it; the first is the text before all headers.
  struct Section {
    KeyPath path;
    std::size_t begin = 0;
    std::size_t bodyBegin = 0;
  };

  /// Fails where the text is not TOML.
  static platform::Result<TomlLayout> of(std::string_view text);

  const std::vector<Entry>& entries() const { return entries_; }
  const Entry* find(const KeyPath& path) const;

  /// The text with the entry's value replaced, or with a new entry.
  platform::Result<std::string> withValue(const KeyPath& path, const std::string& literal) const;
  /// The text without the entry, which is there.
  platform::Result<std::string> without(const Entry& entry) const;

 private:
  explicit TomlLayout(std::string_view text) : text_(text) {}

  class Collector;
  void findSections();
  bool isInsideValue(std::size_t position) const;
  std::size_t sectionIndexAt(std::size_t position) const;
  std::size_t lineBegin(std::size_t position) const;
  /// Behind its line end, if it has one.
  std::size_t lineEnd(std::size_t position) const;
  std::string lineBreak() const;
  std::string indentationAt(std::size_t position) const;

  std::string withLineAfter(std::size_t position, const std::string& line) const;
  std::string withEntryInSection(std::size_t index, const std::string& line) const;
  std::string withFirstEntry(const std::string& line) const;
  std::string withNewSection(const KeyPath& table, const std::string& line) const;
  std::string withEntryInInlineTable(const InlineTable& table, const std::string& line) const;
  const InlineTable* inlineTableAbove(const KeyPath& path) const;
  const Entry* dottedNeighbour(const KeyPath& table) const;

  std::string_view text_;
  std::vector<Entry> entries_;
  std::vector<InlineTable> inlineTables_;
  std::vector<Section> sections_;
};

}  // namespace wrixel2::settings
