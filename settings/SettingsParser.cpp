#include "settings/SettingsParser.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string_view>
#include <tuple>
#include <utility>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "settings/GlobalKeys.h"

namespace wrixel2::settings {

namespace {

constexpr std::string_view kOtherApps = "*";
constexpr std::int64_t kLastIcon = 30;

bool isIcon(std::int64_t number) { return number >= 0 && number <= kLastIcon; }

std::string_view kindWord(toml::node_type type) {
  switch (type) {
    case toml::node_type::none:
      return "nothing";
    case toml::node_type::table:
      return "a table";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::string:
      return "a text";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a real number";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::date:
      return "a date";
    case toml::node_type::time:
      return "a time";
    case toml::node_type::date_time:
      return "a date and time";
  }
  return "nothing";
}

/// Turns the parsed document into settings and collects what is wrong with it.
class DocumentReader {
 public:
  void readDocument(const toml::table& document) {
    for (const auto& [key, node] : document) {
      if (key.str() == "apps") {
        readApps(node);
      } else if (key.str() == "battery") {
        readTable("battery", node, &DocumentReader::readBattery);
      } else if (key.str() == "doNotDisturb") {
        readTable("doNotDisturb", node, &DocumentReader::readDoNotDisturb);
      } else if (key.str() == "button") {
        readTable("button", node, &DocumentReader::readButton);
      } else if (const GlobalKey* global = findGlobalKey(key.str())) {
        readGlobal(*global, node);
      } else {
        warn(key.source(), fmt::format("unknown key \"{}\"", key.str()));
      }
    }
  }

  ParsedSettings result;

 private:
  void readGlobal(const GlobalKey& key, const toml::node& node) {
    if (key.kind == ValueKind::boolean) {
      bool value = false;
      if (read(key.name, node, value)) {
        result.settings.globals.insert_or_assign(std::string(key.name), value);
      }
    } else {
      std::int64_t value = 0;
      if (read(key.name, node, value)) {
        result.settings.globals.insert_or_assign(std::string(key.name), value);
      }
    }
  }

  void readApps(const toml::node& node) {
    const toml::table* apps = node.as_table();
    if (apps == nullptr) {
      wrongKind("apps", node, "a table for each app");
      return;
    }
    for (const auto& [app, settings] : *apps) {
      const toml::table* table = settings.as_table();
      if (table == nullptr) {
        wrongKind(fmt::format("apps.\"{}\"", app.str()), settings, "a table");
        continue;
      }
      const AppSettings parsed = readApp(app.str(), *table);
      if (app.str() == kOtherApps) {
        result.settings.otherApps = parsed;
      } else {
        result.settings.apps.insert_or_assign(std::string(app.str()), parsed);
      }
    }
  }

  AppSettings readApp(std::string_view app, const toml::table& table) {
    AppSettings settings;
    for (const auto& [key, node] : table) {
      const std::string path = fmt::format("apps.\"{}\".{}", app, key.str());
      if (key.str() == "icon") {
        if (read(path, node, settings.icon) && !isIcon(settings.icon)) {
          warn(key.source(), fmt::format("{} is {}; the band has icons from 1 to {}", path,
                                         settings.icon, kLastIcon));
        }
      } else if (key.str() == "repeat") {
        read(path, node, settings.repeat);
      } else if (key.str() == "pattern") {
        read(path, node, settings.pattern);
      } else if (key.str() == "preview") {
        read(path, node, settings.preview);
      } else if (node.is_table()) {
        // [apps.org.example.Chat]: TOML takes the dots for nested tables.
        fail(key.source(), fmt::format("{} is a table; an app's identifier with dots in it stands "
                                       "in quotes, as in [apps.\"org.example.Chat\"]",
                                       path));
      } else {
        warn(key.source(), fmt::format("unknown key {}", path));
      }
    }
    return settings;
  }

  /// Gives each entry of the table, with its path, to the reader, which says whether it knows it.
  void readTable(std::string_view name, const toml::node& node,
                 bool (DocumentReader::*reader)(std::string_view key, std::string_view path,
                                                const toml::node& node)) {
    const toml::table* table = node.as_table();
    if (table == nullptr) {
      wrongKind(name, node, "a table");
      return;
    }
    for (const auto& [key, entry] : *table) {
      const std::string path = fmt::format("{}.{}", name, key.str());
      if (!(this->*reader)(key.str(), path, entry)) {
        warn(key.source(), fmt::format("unknown key {}", path));
      }
    }
  }

  bool readBattery(std::string_view key, std::string_view path, const toml::node& node) {
    if (key != "alertBelow") {
      return false;
    }
    read(path, node, result.settings.companion.lowBattery, 0, 100);
    return true;
  }

  bool readDoNotDisturb(std::string_view key, std::string_view path, const toml::node& node) {
    if (key != "phoshProfiles") {
      return false;
    }
    read(path, node, result.settings.companion.silentProfiles);
    return true;
  }

  bool readButton(std::string_view key, std::string_view path, const toml::node& node) {
    constexpr std::array<std::string_view, CompanionSettings::kCountedPresses> kCounts = {
        "once", "twice", "thrice"};
    CompanionSettings& companion = result.settings.companion;
    if (key == "window") {
      constexpr std::int64_t kLongestWindow = 10'000;
      read(path, node, companion.buttonWindow, 0, kLongestWindow);
      return true;
    }
    const auto* count = std::find(kCounts.begin(), kCounts.end(), key);
    if (count == kCounts.end()) {
      return false;
    }
    readAction(path, node, companion.buttonActions.at(std::size_t(count - kCounts.begin())));
    return true;
  }

  void readAction(std::string_view path, const toml::node& node, ButtonAction& action) {
    using Kind = ButtonAction::Kind;
    constexpr std::array<std::pair<std::string_view, Kind>, 4> kNames = {
        {{"none", Kind::none},
         {"playPause", Kind::playPause},
         {"silenceCall", Kind::silenceCall},
         {"hangUp", Kind::hangUp}}};
    if (node.is_array()) {
      if (read(path, node, action.command)) {
        action.kind = Kind::command;
        if (action.command.empty() || action.command.front().empty()) {
          fail(node.source(), fmt::format("{} names no program", path));
        }
      }
      return;
    }
    const auto* text = node.as_string();
    const auto* named = std::find_if(kNames.begin(), kNames.end(), [&](const auto& entry) {
      return text != nullptr && entry.first == text->get();
    });
    if (named == kNames.end()) {
      fail(node.source(),
           fmt::format("{} has to be \"none\", \"playPause\", \"silenceCall\", \"hangUp\" or an "
                       "array of a program and its arguments",
                       path));
      return;
    }
    action.kind = named->second;
  }

  bool read(std::string_view path, const toml::node& node, std::vector<std::string>& texts) {
    const toml::array* array = node.as_array();
    if (array == nullptr) {
      wrongKind(path, node, "an array of texts");
      return false;
    }
    std::vector<std::string> read;
    for (const toml::node& entry : *array) {
      const auto* text = entry.as_string();
      if (text == nullptr) {
        wrongKind(fmt::format("{}, an entry of it,", path), entry, "a text");
        return false;
      }
      read.push_back(text->get());
    }
    texts = std::move(read);
    return true;
  }

  bool read(std::string_view path, const toml::node& node, bool& value) {
    if (const auto* boolean = node.as_boolean()) {
      value = boolean->get();
      return true;
    }
    wrongKind(path, node, "a boolean (true or false)");
    return false;
  }

  // The daemon reads these as 32-bit numbers: a larger one would silently become another.
  bool read(std::string_view path, const toml::node& node, std::int64_t& value,
            std::int64_t least = std::numeric_limits<std::int32_t>::min(),
            std::int64_t most = std::numeric_limits<std::int32_t>::max()) {
    const auto* integer = node.as_integer();
    if (integer == nullptr) {
      wrongKind(path, node, "an integer");
      return false;
    }
    if (integer->get() < least || integer->get() > most) {
      fail(node.source(), fmt::format("{} is out of range ({} to {})", path, least, most));
      return false;
    }
    value = integer->get();
    return true;
  }

  void wrongKind(std::string_view path, const toml::node& node, std::string_view wanted) {
    fail(node.source(),
         fmt::format("{} is {}, where {} is needed", path, kindWord(node.type()), wanted));
  }

  void fail(const toml::source_region& where, std::string message) {
    result.errors.push_back({where.begin.line, std::move(message)});
  }
  void warn(const toml::source_region& where, std::string message) {
    result.warnings.push_back({where.begin.line, std::move(message)});
  }
};

void sortByLine(std::vector<SettingsProblem>& problems) {
  std::sort(problems.begin(), problems.end(),
            [](const SettingsProblem& one, const SettingsProblem& other) {
              return std::tie(one.line, one.message) < std::tie(other.line, other.message);
            });
}

}  // namespace

ParsedSettings parseSettings(std::string_view text) {
  DocumentReader reader;
  try {
    reader.readDocument(toml::parse(text));
    // Tables are kept by key; people read from the top.
    sortByLine(reader.result.errors);
    sortByLine(reader.result.warnings);
  } catch (const toml::parse_error& error) {
    reader.result.errors.push_back({error.source().begin.line, std::string(error.description())});
  }
  return std::move(reader.result);
}

}  // namespace wrixel2::settings
