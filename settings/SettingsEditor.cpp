#include "settings/SettingsEditor.h"

#include <algorithm>
#include <cerrno>
#include <map>
#include <utility>

#include <fmt/format.h>

#include "settings/SettingsParser.h"
#include "settings/TomlLayout.h"

namespace wrixel2::settings {

namespace {

using Values = std::map<KeyPath, platform::Value>;

Values valuesOf(const std::vector<SettingsEditor::Entry>& entries) {
  Values values;
  for (const SettingsEditor::Entry& entry : entries) {
    values.insert_or_assign(entry.path, entry.value);
  }
  return values;
}

}  // namespace

platform::Result<SettingsEditor> SettingsEditor::open(platform::FileManager& files,
                                                      const std::string& path) {
  const auto contents = files.contentsAtPath(path);
  if (!contents) {
    if (contents.error().code == ENOENT) {
      return ofText(path, "");
    }
    return contents.error();
  }
  return ofText(path, std::string(contents->begin(), contents->end()));
}

platform::Result<SettingsEditor> SettingsEditor::ofText(std::string name, std::string text) {
  SettingsEditor editor(std::move(name), std::move(text));
  if (auto error = editor.load()) {
    return platform::Error{error->code,
                           editor.name_ + error->localizedDescription + "; mend that first"};
  }
  return editor;
}

platform::ErrorOrNone SettingsEditor::load() {
  ParsedSettings parsed = parseSettings(text_);
  if (!parsed.errors.empty()) {
    const SettingsProblem& first = parsed.errors.front();
    return platform::Error{0, fmt::format(":{}: {}", first.line, first.message)};
  }
  const auto layout = TomlLayout::of(text_);
  if (!layout) {
    return platform::Error{0, ": " + layout.error().localizedDescription};
  }
  settings_ = std::move(parsed.settings);
  warnings_ = std::move(parsed.warnings);
  entries_.clear();
  for (const TomlLayout::Entry& entry : layout->entries()) {
    entries_.push_back({entry.path, entry.value, entry.line});
  }
  return std::nullopt;
}

const SettingsEditor::Entry* SettingsEditor::find(const KeyPath& path) const {
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&path](const Entry& entry) { return entry.path == path; });
  return found != entries_.end() ? &*found : nullptr;
}

platform::ErrorOrNone SettingsEditor::set(const KeyPath& path, const platform::Value& value) {
  const auto layout = TomlLayout::of(text_);
  if (!layout) {
    return layout.error();
  }
  auto text = layout->withValue(path, tomlText(value));
  if (!text) {
    return text.error();
  }
  return replaceBy(std::move(*text), path, value);
}

platform::ErrorOrNone SettingsEditor::unset(const KeyPath& path) {
  const auto layout = TomlLayout::of(text_);
  if (!layout) {
    return layout.error();
  }
  const TomlLayout::Entry* entry = layout->find(path);
  if (entry == nullptr) {
    return platform::Error{ENOENT, fmt::format("{} does not set {}", name_, tomlPath(path))};
  }
  auto text = layout->without(*entry);
  if (!text) {
    return text.error();
  }
  return replaceBy(std::move(*text), path, std::nullopt);
}

platform::ErrorOrNone SettingsEditor::replaceBy(std::string text, const KeyPath& path,
                                                const std::optional<platform::Value>& value) {
  SettingsEditor changed(name_, std::move(text));
  if (const auto error = changed.load()) {
    return platform::Error{0, fmt::format("{} cannot be changed in {}: the file would not hold any "
                                          "more ({}); change it with a text editor",
                                          tomlPath(path), name_, error->localizedDescription)};
  }
  Values wanted = valuesOf(entries_);
  if (value) {
    wanted.insert_or_assign(path, *value);
  } else {
    wanted.erase(path);
  }
  if (valuesOf(changed.entries_) != wanted) {
    return platform::Error{0, fmt::format("{} cannot be changed in {} without changing more than "
                                          "that; change it with a text editor",
                                          tomlPath(path), name_)};
  }
  *this = std::move(changed);
  return std::nullopt;
}

platform::ErrorOrNone SettingsEditor::save(platform::FileManager& files) const {
  return files.writeAtomically(name_, platform::bytesOfText(text_));
}

}  // namespace wrixel2::settings
