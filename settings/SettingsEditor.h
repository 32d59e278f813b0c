#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileManager.h"
#include "platform/Result.h"
#include "platform/Value.h"
#include "settings/SettingKeys.h"
#include "settings/Settings.h"
#include "settings/SettingsParser.h"

namespace wrixel2::settings {

/// Changes single entries of a settings file and leaves all else in it, comments and blanks and
/// line ends, byte for byte.
///
/// Each change is made in the text and then read back: only a text that says exactly what it said
/// before, but for the wanted entry, replaces the old one. A change that cannot be made so is an
/// error that says why, and the text stays.
class SettingsEditor {
 public:
  /// One entry of the file: what is no table.
  struct Entry {
    KeyPath path;
    platform::Value value;
    std::uint32_t line = 0;  ///< of its key, from 1
  };

  /// Of a file that need not exist. Fails where it cannot be read, and for what the file's readers
  /// would refuse: "FILE:LINE: reason; mend that first".
  static platform::Result<SettingsEditor> open(platform::FileManager& files,
                                               const std::string& path);
  /// Of a text that is in no file; the name is for messages.
  static platform::Result<SettingsEditor> ofText(std::string name, std::string text);

  const std::string& text() const { return text_; }
  /// What the text says, as the programs that read it have it.
  const Settings& settings() const { return settings_; }
  /// What its readers ignore, each with its line.
  const std::vector<SettingsProblem>& warnings() const { return warnings_; }
  const std::vector<Entry>& entries() const { return entries_; }
  /// None where the text does not say.
  const Entry* find(const KeyPath& path) const;

  /// Gives the entry the value, in its place or, new, in its table: behind the table's last entry,
  /// or in a new table at the end of the text.
  platform::ErrorOrNone set(const KeyPath& path, const platform::Value& value);
  /// Removes the entry with its line, or from its inline table. Fails where there is none.
  platform::ErrorOrNone unset(const KeyPath& path);

  /// Replaces the file in one step; a new one is for the owner alone (0600).
  platform::ErrorOrNone save(platform::FileManager& files) const;

 private:
  SettingsEditor(std::string name, std::string text)
      : name_(std::move(name)), text_(std::move(text)) {}

  platform::ErrorOrNone load();
  platform::ErrorOrNone replaceBy(std::string text, const KeyPath& path,
                                  const std::optional<platform::Value>& value);

  std::string name_;
  std::string text_;
  Settings settings_;
  std::vector<SettingsProblem> warnings_;
  std::vector<Entry> entries_;
};

}  // namespace wrixel2::settings
