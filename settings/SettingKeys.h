#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::settings {

/// The keys that lead to an entry of a settings file, the outermost table's first.
using KeyPath = std::vector<std::string>;

/// What an entry of a settings file may be.
enum class SettingForm : std::uint8_t {
  boolean,
  integer,
  texts,   ///< an array of texts
  action,  ///< what a press of the band's button does
};

/// One key of a settings file, for programs that show and change it.
struct SettingKey {
  std::string_view name;  ///< with its table: "timeout", "battery.alertBelow"; of an app: "icon"
  SettingForm form = SettingForm::boolean;
  std::string_view standard;  ///< what holds without an entry, as it would stand in the file
  std::string_view meaning;
  std::int64_t least = 0;  ///< of an integer
  std::int64_t most = 0;
};

/// All keys but the apps', in the order in which people are shown them.
std::span<const SettingKey> settingKeys();
/// The four keys of an app's table.
std::span<const SettingKey> appSettingKeys();

/// Where people write one name, "apps.ID.icon" with the app's identifier as it is, dots and all.
struct NamedSetting {
  const SettingKey* key = nullptr;
  KeyPath path;
};
/// Fails with a sentence that names what is most like it.
platform::Result<NamedSetting> settingNamed(std::string_view name);

/// The value that the words of a command line stand for. Fails with what would be right.
platform::Result<platform::Value> settingValue(const SettingKey& key,
                                               const std::vector<std::string>& words);

/// As it would stand in the file.
std::string tomlText(const platform::Value& value);
/// A key of the file, in quotes where it needs them.
std::string tomlKey(std::string_view key);
/// "apps.\"org.example.Chat\".icon"
std::string tomlPath(const KeyPath& path);

/// The name that takes the fewest changes to become the given one; empty where none is like it.
std::string_view nearestName(std::string_view name, std::span<const std::string_view> names);

}  // namespace wrixel2::settings
