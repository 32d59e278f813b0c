#include "companion/SettingsParser.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <tuple>

#include <fmt/format.h>
#include <toml++/toml.h>

#include "companion/GlobalKeys.h"

namespace wrixel2::companion {

namespace {

constexpr std::string_view kOtherApps = "*";

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
        read(path, node, settings.icon);
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

  bool read(std::string_view path, const toml::node& node, bool& value) {
    if (const auto* boolean = node.as_boolean()) {
      value = boolean->get();
      return true;
    }
    wrongKind(path, node, "a boolean (true or false)");
    return false;
  }

  bool read(std::string_view path, const toml::node& node, std::int64_t& value) {
    const auto* integer = node.as_integer();
    if (integer == nullptr) {
      wrongKind(path, node, "an integer");
      return false;
    }
    // The daemon reads these as 32-bit numbers: a larger one would silently become another.
    using Limits = std::numeric_limits<std::int32_t>;
    if (integer->get() < Limits::min() || integer->get() > Limits::max()) {
      fail(node.source(), fmt::format("{} is out of range", path));
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

}  // namespace wrixel2::companion
