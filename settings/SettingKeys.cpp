#include "settings/SettingKeys.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <limits>
#include <numeric>

#include <fmt/format.h>

namespace wrixel2::settings {

namespace {

// The daemon reads numbers as 32-bit ones.
constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
using Form = SettingForm;

constexpr std::array<SettingKey, 25> kKeys = {{
    {"enabled", Form::boolean, "true", "the whole service"},
    {"donotdisturb", Form::boolean, "true", "only alarms during Do Not Disturb"},
    {"donotannoy", Form::boolean, "false", "a quiet time after each alert of an app"},
    {"mode", Form::integer, "0", "the quiet time is 0: the app's, 1: each sender's", 0, 1},
    {"timeout", Form::integer, "15", "seconds of quiet", 0, kMost},
    {"alarmSwitch", Form::boolean, "true", "alarms ring until they are stopped"},
    {"onlyLocked", Form::boolean, "false", "only while the phone is locked"},
    {"connectedMode", Form::integer, "0", "stay connected: 0 no, 1 always, 2 unless Do Not Disturb",
     0, 2},
    {"hrInterval", Form::integer, "0", "minutes between heart rates, 0: off", 0, kMost},
    {"vibrateHrMeasure", Form::boolean, "false", "a buzz before each measurement"},
    {"continuousHr", Form::boolean, "false", "measure all the time"},
    {"stopwatchSwitch", Form::boolean, "false", "the band's clock counts up"},
    {"moveEnabled", Form::boolean, "false", "the move reminder"},
    {"onlyWeekdays", Form::boolean, "true", "no reminder at weekends"},
    {"startSteps", Form::integer, "8", "the hour from which it watches", 0, 23},
    {"endSteps", Form::integer, "16", "the hour till which it watches", 0, 23},
    {"remindPeriod", Form::integer, "1", "hours of a period", 1, 23},
    {"sensitivity", Form::integer, "10", "most steps of a period that it reminds of", 0, kMost},
    {"stepRepeat", Form::integer, "1", "how often the reminder vibrates", 1, kMost},
    {"battery.alertBelow", Form::integer, "15", "per cent below which you are told, 0: never", 0,
     100},
    {"doNotDisturb.phoshProfiles", Form::texts, "[\"silent\"]",
     "feedback profiles that mean Do Not Disturb"},
    {"button.window", Form::integer, "1000", "milliseconds in which presses count together", 0,
     10'000},
    {"button.once", Form::action, "\"none\"", "what one press does"},
    {"button.twice", Form::action, "\"none\"", "what two presses do"},
    {"button.thrice", Form::action, "\"none\"", "what three presses do"},
}};
constexpr std::array<SettingKey, 4> kAppKeys = {{
    {"icon", Form::integer, "0", "the icon on the band, 0: no alert", 0, 30},
    {"repeat", Form::integer, "0", "vibrate once more than this", 0, kMost},
    {"pattern", Form::integer, "0", "how it vibrates", 0, 8},
    {"preview", Form::boolean, "false", "show the text"},
}};

constexpr std::array<std::string_view, 4> kActions = {"none", "playPause", "silenceCall", "hangUp"};
constexpr std::string_view kApps = "apps";

const SettingKey* find(std::span<const SettingKey> keys, std::string_view name) {
  const auto found = std::find_if(keys.begin(), keys.end(),
                                  [name](const SettingKey& key) { return key.name == name; });
  return found != keys.end() ? &*found : nullptr;
}

std::vector<std::string_view> namesOf(std::span<const SettingKey> keys) {
  std::vector<std::string_view> names;
  for (const SettingKey& key : keys) {
    names.push_back(key.name);
  }
  return names;
}

platform::Error unknown(std::string_view name, std::span<const SettingKey> keys,
                        std::string_view prefix) {
  const auto names = namesOf(keys);
  const std::string_view nearest = nearestName(name, names);
  if (nearest.empty()) {
    return {0, fmt::format("there is no setting {}{}; \"settings list\" shows all", prefix, name)};
  }
  return {0,
          fmt::format("there is no setting {0}{1}; did you mean {0}{2}?", prefix, name, nearest)};
}

platform::Result<NamedSetting> appSettingNamed(std::string_view name) {
  // The identifier is everything between the first dot and the last.
  const std::string_view rest = name.substr(kApps.size() + 1);
  const std::size_t dot = rest.rfind('.');
  std::string_view app = rest.substr(0, dot == std::string_view::npos ? 0 : dot);
  if (app.size() >= 2 && app.front() == '"' && app.back() == '"') {
    app = app.substr(1, app.size() - 2);
  }
  if (app.empty()) {
    return platform::Error{0, fmt::format("{} names no app's setting: that is apps.ID.icon, with "
                                          "repeat, pattern and preview beside icon",
                                          name)};
  }
  const std::string_view keyName = rest.substr(dot + 1);
  const SettingKey* key = find(kAppKeys, keyName);
  if (key == nullptr) {
    return unknown(keyName, kAppKeys, fmt::format("apps.{}.", app));
  }
  return NamedSetting{key, {std::string(kApps), std::string(app), std::string(keyName)}};
}

KeyPath pathOf(std::string_view name) {
  const std::size_t dot = name.find('.');
  if (dot == std::string_view::npos) {
    return {std::string(name)};
  }
  return {std::string(name.substr(0, dot)), std::string(name.substr(dot + 1))};
}

platform::Error wrong(const SettingKey& key, std::string_view wanted, std::string_view given) {
  return {0, fmt::format("{} has to be {}, not \"{}\"", key.name, wanted, given)};
}

platform::Result<platform::Value> booleanValue(const SettingKey& key, const std::string& word) {
  for (const std::string_view yes : {"true", "on", "yes"}) {
    if (word == yes) {
      return platform::Value(true);
    }
  }
  for (const std::string_view no : {"false", "off", "no"}) {
    if (word == no) {
      return platform::Value(false);
    }
  }
  return wrong(key, "true or false (on or off)", word);
}

platform::Result<platform::Value> integerValue(const SettingKey& key, const std::string& word) {
  const std::string wanted = key.most == kMost
                                 ? fmt::format("a whole number from {} on", key.least)
                                 : fmt::format("a whole number from {} to {}", key.least, key.most);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
  if (error != std::errc() || end != word.data() + word.size() || number < key.least ||
      number > key.most) {
    return wrong(key, wanted, word);
  }
  return platform::Value(number);
}

platform::Result<platform::Value> actionValue(const SettingKey& key,
                                              const std::vector<std::string>& words) {
  const std::string& first = words.front();
  if (words.size() == 1 && std::find(kActions.begin(), kActions.end(), first) != kActions.end()) {
    return platform::Value(first);
  }
  // A single bare word is more likely a misspelt action than a program without arguments.
  if (first.empty() || (words.size() == 1 && first.find('/') == std::string::npos)) {
    return wrong(key,
                 "none, playPause, silenceCall, hangUp, or a program with its arguments (one "
                 "without any by its path)",
                 first);
  }
  return platform::Value(platform::Array(words.begin(), words.end()));
}

std::string tomlString(std::string_view text) {
  std::string result = "\"";
  for (const char character : text) {
    const auto code = static_cast<unsigned char>(character);
    if (character == '"' || character == '\\') {
      result += '\\';
      result += character;
    } else if (code < 0x20 || code == 0x7F) {
      result += fmt::format("\\u{:04X}", code);
    } else {
      result += character;
    }
  }
  return result + '"';
}

/// Changes, insertions and removals of one character, as Levenshtein counts them; capitals are the
/// same as small letters.
std::size_t distance(std::string_view one, std::string_view other) {
  std::vector<std::size_t> row(other.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = i + 1;
    for (std::size_t j = 0; j < other.size(); ++j) {
      const bool same = std::tolower(static_cast<unsigned char>(one[i])) ==
                        std::tolower(static_cast<unsigned char>(other[j]));
      const std::size_t changed = diagonal + (same ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::span<const SettingKey> settingKeys() { return kKeys; }
std::span<const SettingKey> appSettingKeys() { return kAppKeys; }

platform::Result<NamedSetting> settingNamed(std::string_view name) {
  if (name.starts_with("apps.")) {
    return appSettingNamed(name);
  }
  const SettingKey* key = find(kKeys, name);
  if (key == nullptr) {
    return unknown(name, kKeys, "");
  }
  return NamedSetting{key, pathOf(name)};
}

platform::Result<platform::Value> settingValue(const SettingKey& key,
                                               const std::vector<std::string>& words) {
  if (key.form == SettingForm::texts) {
    return platform::Value(platform::Array(words.begin(), words.end()));
  }
  if (words.empty()) {
    return platform::Error{0, fmt::format("{} needs a value", key.name)};
  }
  if (key.form == SettingForm::action) {
    return actionValue(key, words);
  }
  if (words.size() > 1) {
    return platform::Error{0, fmt::format("{} takes one value", key.name)};
  }
  return key.form == SettingForm::boolean ? booleanValue(key, words.front())
                                          : integerValue(key, words.front());
}

std::string tomlText(const platform::Value& value) {
  if (const auto* flag = std::get_if<bool>(&value.variant())) {
    return *flag ? "true" : "false";
  }
  if (const auto* text = value.text()) {
    return tomlString(*text);
  }
  if (const auto* array = value.array()) {
    std::string result = "[";
    for (const platform::Value& entry : *array) {
      result += result.size() == 1 ? "" : ", ";
      result += tomlText(entry);
    }
    return result + "]";
  }
  if (const auto* real = std::get_if<double>(&value.variant())) {
    return fmt::format("{}", *real);
  }
  return fmt::format("{}", value.longValue());
}

std::string tomlKey(std::string_view key) {
  const bool isBare = !key.empty() && std::all_of(key.begin(), key.end(), [](char character) {
    const auto code = static_cast<unsigned char>(character);
    return code < 0x80 && (std::isalnum(code) != 0 || character == '_' || character == '-');
  });
  return isBare ? std::string(key) : tomlString(key);
}

std::string tomlPath(const KeyPath& path) {
  std::string text;
  for (const std::string& key : path) {
    text += text.empty() ? "" : ".";
    text += tomlKey(key);
  }
  return text;
}

std::string_view nearestName(std::string_view name, std::span<const std::string_view> names) {
  std::string_view nearest;
  // Who has to change more than a third of the name has not mistyped it.
  std::size_t least = std::max<std::size_t>(name.size() / 3, 1);
  for (const std::string_view candidate : names) {
    const std::size_t changes = distance(name, candidate);
    if (changes <= least && (nearest.empty() || changes < least)) {
      least = changes;
      nearest = candidate;
    }
  }
  return nearest;
}

}  // namespace wrixel2::settings
