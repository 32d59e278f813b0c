#include "ctl/SettingsCommand.h"

#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

using settings::SettingKey;
using settings::SettingsEditor;

struct Row {
  std::string name;
  const SettingKey* key;
  const SettingsEditor::Entry* entry;  ///< none: the default holds
};

std::vector<Row> rowsOf(const SettingsEditor& editor) {
  std::vector<Row> rows;
  for (const SettingKey& key : settings::settingKeys()) {
    rows.push_back(
        {std::string(key.name), &key, editor.find(settings::settingNamed(key.name)->path)});
  }
  for (const SettingsEditor::Entry& entry : editor.entries()) {
    if (entry.path.size() != 3 || entry.path.front() != "apps") {
      continue;
    }
    const std::string name = fmt::format("apps.{}.{}", entry.path[1], entry.path[2]);
    if (const auto named = settings::settingNamed(name); named && named->path == entry.path) {
      rows.push_back({name, named->key, &entry});
    }
  }
  return rows;
}

std::string valueOf(const Row& row) {
  return row.entry != nullptr ? settings::tomlText(row.entry->value)
                              : std::string(row.key->standard);
}

std::string listText(const std::vector<Row>& rows) {
  std::vector<std::vector<std::string>> cells{{"KEY", "VALUE", "DEFAULT", "FROM", "MEANING"}};
  for (const Row& row : rows) {
    cells.push_back({printable(row.name), printable(valueOf(row)), std::string(row.key->standard),
                     row.entry != nullptr ? fmt::format("line {}", row.entry->line) : "default",
                     std::string(row.key->meaning)});
  }
  return alignedRows(cells);
}

/// What the row's text in the file stands for, for programs that read JSON.
platform::Value jsonValueOf(const Row& row) {
  if (row.entry != nullptr) {
    return row.entry->value;
  }
  const auto path = settings::settingNamed(row.name)->path;
  const auto standard = SettingsEditor::ofText(
      "", fmt::format("{} = {}\n", settings::tomlPath(path), row.key->standard));
  return standard->find(path)->value;
}

platform::Array listJson(const std::vector<Row>& rows) {
  platform::Array list;
  for (const Row& row : rows) {
    platform::Dictionary members{{"key", row.name},
                                 {"value", jsonValueOf(row)},
                                 {"meaning", row.key->meaning},
                                 {"set", row.entry != nullptr}};
    if (row.entry != nullptr) {
      members.insert_or_assign("line", row.entry->line);
    }
    list.emplace_back(std::move(members));
  }
  return list;
}

/// A key's own row, also of an app that has no table.
platform::Result<Row> rowNamed(const SettingsEditor& editor, const std::string& name) {
  const auto named = settings::settingNamed(name);
  if (!named) {
    return failure(ExitStatus::badUsage, named.error().localizedDescription);
  }
  return Row{name, named->key, editor.find(named->path)};
}

template <typename Change>
ExitStatus changeFile(const Context& context, const Change& change) {
  auto editor = SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    return context.fail(ExitStatus::failed, editor.error().localizedDescription);
  }
  platform::ErrorOrNone error = change(*editor);
  if (!error) {
    error = editor->save(context.files);
  }
  if (error) {
    return context.fail(ExitStatus::failed, error->localizedDescription);
  }
  context.warnWithoutCompanion();
  return ExitStatus::done;
}

}  // namespace

void SettingsCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("settings", "Show and change the settings");
  command->require_subcommand(1);
  const auto add = [&](const char* name, const char* description,
                       ExitStatus (SettingsCommand::*run)(const Context&) const) {
    auto* subcommand = command->add_subcommand(name, description);
    subcommand->callback([this, choose, run] {
      choose([this, run](const Context& context) { return (this->*run)(context); });
    });
    return subcommand;
  };
  const auto addKey = [this](CLI::App* subcommand) {
    subcommand->add_option("key", key_, "such as timeout, or apps.ID.icon")
        ->required()
        ->type_name("KEY");
  };
  add("list", "Show every key with its value and where that comes from", &SettingsCommand::list)
      ->add_flag("--names", namesOnly_, "only the keys, one a line");
  addKey(add("get", "Show the value of one key", &SettingsCommand::get));
  auto* set = add("set", "Give a key a value, in the settings file", &SettingsCommand::set);
  addKey(set);
  set->add_option("value", values_, "the value; some keys take several words")
      ->required()
      ->type_name("VALUE");
  addKey(add("unset", "Take a key out of the settings file, so that its default holds",
             &SettingsCommand::unset));
}

ExitStatus SettingsCommand::list(const Context& context) const {
  const auto editor = SettingsEditor::open(context.files, context.paths.settings);
  if (!editor && namesOnly_) {
    // The keys are the same, whatever a damaged file says.
    for (const SettingKey& key : settings::settingKeys()) {
      context.console.print(std::string(key.name) + "\n");
    }
    return ExitStatus::done;
  }
  if (!editor) {
    return context.fail(ExitStatus::failed, editor.error().localizedDescription);
  }
  const std::vector<Row> rows = rowsOf(*editor);
  if (namesOnly_) {
    for (const Row& row : rows) {
      context.console.print(printable(row.name) + "\n");
    }
  } else if (context.json) {
    context.console.print(jsonText(listJson(rows), JsonLayout::indented) + "\n");
  } else {
    context.console.print(listText(rows));
  }
  return ExitStatus::done;
}

ExitStatus SettingsCommand::get(const Context& context) const {
  const auto editor = SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    return context.fail(ExitStatus::failed, editor.error().localizedDescription);
  }
  const auto row = rowNamed(*editor, key_);
  if (!row) {
    return context.fail(row.error());
  }
  context.console.print(
      (context.json ? jsonText(jsonValueOf(*row), JsonLayout::oneLine) : valueOf(*row)) + "\n");
  return ExitStatus::done;
}

ExitStatus SettingsCommand::set(const Context& context) const {
  const auto named = settings::settingNamed(key_);
  if (!named) {
    return context.fail(ExitStatus::badUsage, named.error().localizedDescription);
  }
  const auto value = settings::settingValue(*named->key, values_);
  if (!value) {
    return context.fail(ExitStatus::badUsage, value.error().localizedDescription);
  }
  return changeFile(context,
                    [&](SettingsEditor& editor) { return editor.set(named->path, *value); });
}

ExitStatus SettingsCommand::unset(const Context& context) const {
  const auto named = settings::settingNamed(key_);
  if (!named) {
    return context.fail(ExitStatus::badUsage, named.error().localizedDescription);
  }
  return changeFile(context, [&](SettingsEditor& editor) { return editor.unset(named->path); });
}

}  // namespace wrixel2::ctl
