#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "settings/Settings.h"

namespace wrixel2::settings {

/// One thing that is wrong with a settings file.
struct SettingsProblem {
  std::uint32_t line = 0;  ///< from 1
  std::string message;

  friend bool operator==(const SettingsProblem&, const SettingsProblem&) = default;
};

/// What became of a settings file. With any error the settings are not to be used: one key of the
/// wrong kind would otherwise fall back to a default that the owner did not choose.
struct ParsedSettings {
  Settings settings;
  std::vector<SettingsProblem> errors;
  /// Keys that mean nothing, typing errors most likely. The file holds without them.
  std::vector<SettingsProblem> warnings;
};

/// Reads the text of a settings file: TOML 1.0 with the global keys at the top level, a table
/// [apps."IDENTIFIER"] for each app, and the companion's own tables [battery], [doNotDisturb] and
/// [button]. Kinds are strict: no number stands for a boolean.
ParsedSettings parseSettings(std::string_view text);

}  // namespace wrixel2::settings
