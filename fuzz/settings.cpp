// The owner's settings file.

#include <fmt/format.h>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "settings/GlobalKeys.h"
#include "settings/PreferenceChanges.h"
#include "settings/SettingsParser.h"

namespace wrixel2::fuzz {
namespace {

using settings::Settings;

/// A basic string of TOML 1.0: everything but letters and digits as an escape.
std::string tomlString(std::string_view text) {
  std::string result = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isEscaped = byte < 0x20 || byte == 0x7F || c == '"' || c == '\\';
    result += isEscaped ? fmt::format("\\u{:04X}", byte) : std::string(1, c);
  }
  return result + "\"";
}

std::string appTable(std::string_view name, const settings::AppSettings& app) {
  return fmt::format("[apps.{}]\nicon = {}\nrepeat = {}\npattern = {}\npreview = {}\n",
                     tomlString(name), app.icon, app.repeat, app.pattern, app.preview);
}

std::string action(const settings::ButtonAction& action) {
  using Kind = settings::ButtonAction::Kind;
  switch (action.kind) {
    case Kind::none:
      return "\"none\"";
    case Kind::playPause:
      return "\"playPause\"";
    case Kind::silenceCall:
      return "\"silenceCall\"";
    case Kind::hangUp:
      return "\"hangUp\"";
    case Kind::command:
      break;
  }
  std::string words;
  for (const auto& word : action.command) {
    words += tomlString(word) + ", ";
  }
  return "[" + words + "]";
}

std::string fileOf(const Settings& settings) {
  std::string file;
  for (const auto& [key, value] : settings.globals) {
    const auto* flag = std::get_if<bool>(&value.variant());
    file += flag != nullptr ? fmt::format("{} = {}\n", key, *flag)
                            : fmt::format("{} = {}\n", key, value.longValue());
  }
  for (const auto& [name, app] : settings.apps) {
    file += appTable(name, app);
  }
  if (settings.otherApps) {
    file += appTable("*", *settings.otherApps);
  }
  const auto& companion = settings.companion;
  std::string profiles;
  for (const auto& profile : companion.silentProfiles) {
    profiles += tomlString(profile) + ", ";
  }
  file += fmt::format("[battery]\nalertBelow = {}\n[doNotDisturb]\nphoshProfiles = [{}]\n",
                      companion.lowBattery, profiles);
  return file + fmt::format("[button]\nwindow = {}\nonce = {}\ntwice = {}\nthrice = {}\n",
                            companion.buttonWindow, action(companion.buttonActions[0]),
                            action(companion.buttonActions[1]), action(companion.buttonActions[2]));
}

void checkRanges(const Settings& settings) {
  for (const auto& [key, value] : settings.globals) {
    const auto* known = settings::findGlobalKey(key);
    check(known != nullptr, "only known keys are settings");
    const bool isBoolean = std::holds_alternative<bool>(value.variant());
    check(isBoolean == (known->kind == settings::ValueKind::boolean), "kinds are strict");
    check(value.longValue() == value.intValue(), "numbers have 32 bits");
  }
  check(settings.companion.lowBattery >= 0 && settings.companion.lowBattery <= 100,
        "per cent are at most a hundred");
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2;  // NOLINT(google-build-using-namespace)
  const auto parsed = settings::parseSettings(fuzz::Input(data, size).restAsText());
  for (const auto& problem : parsed.errors) {
    fuzz::check(problem.line >= 1 && !problem.message.empty(), "an error has a line and words");
  }
  if (!parsed.errors.empty()) {
    return 0;
  }
  fuzz::checkRanges(parsed.settings);
  const auto again = settings::parseSettings(fuzz::fileOf(parsed.settings));
  // Values that mean nothing to a band are warned about, and kept.
  fuzz::check(again.errors.empty(), "what is printed is a good file");
  fuzz::check(again.settings == parsed.settings, "what is printed reads back equal");
  const auto dictionary = settings::prefsDictionary(parsed.settings, {"an.app"});
  fuzz::check(settings::preferenceChanges(dictionary, dictionary).empty(),
              "nothing changes between equal settings");
  return 0;
}
