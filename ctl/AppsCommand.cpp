#include "ctl/AppsCommand.h"

#include <map>
#include <optional>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/AppAlerts.h"
#include "ctl/IconNames.h"
#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "ctl/TimeText.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

using settings::SettingsEditor;

/// Stands for the apps without a table of their own.
constexpr const char* kOtherApps = "*";

/// An app that has notified, or has a table of its own, or both.
struct KnownApp {
  SeenApp seen;
  std::optional<settings::AppSettings> alert;  ///< none: neither its own nor other apps'
  bool hasOwnTable = false;
};

/// By identifier; behind them what every other app gets, where something is set for it.
std::vector<KnownApp> knownApps(const std::vector<SeenApp>& seen,
                                const settings::Settings& settings) {
  std::map<std::string, KnownApp> apps;
  for (const SeenApp& app : seen) {
    apps[app.id].seen = app;
  }
  for (const auto& [id, alert] : settings.apps) {
    apps[id].hasOwnTable = true;
  }
  std::vector<KnownApp> known;
  for (auto& [id, app] : apps) {
    app.seen.id = id;
    if (const auto* alert = alertOf(settings, id)) {
      app.alert = *alert;
    }
    known.push_back(std::move(app));
  }
  if (settings.otherApps) {
    known.push_back({{kOtherApps, "every other app"}, settings.otherApps, true});
  }
  return known;
}

std::string listText(const std::vector<KnownApp>& apps, const Context& context) {
  std::vector<std::vector<std::string>> rows{
      {"APP", "NAME", "SEEN", "LAST", "ICON", "REPEAT", "PATTERN", "TEXT", "FROM"}};
  for (const KnownApp& app : apps) {
    const settings::AppSettings alert = app.alert.value_or(settings::AppSettings{});
    rows.push_back(
        {printable(app.seen.id), printable(app.seen.name), fmt::format("{}", app.seen.count),
         app.seen.last == 0 ? "-"
                            : shortTime(platform::Date(std::chrono::seconds(app.seen.last)),
                                        context.clock.now(), context.timeZone),
         iconText(alert.icon), fmt::format("{}", alert.repeat), fmt::format("{}", alert.pattern),
         alert.preview ? "yes" : "no",
         app.hasOwnTable         ? "its table"
         : app.alert.has_value() ? "other apps"
                                 : "default"});
  }
  return alignedRows(rows);
}

platform::Array listJson(const std::vector<KnownApp>& apps) {
  platform::Array list;
  for (const KnownApp& app : apps) {
    const settings::AppSettings alert = app.alert.value_or(settings::AppSettings{});
    list.emplace_back(platform::Dictionary{{"id", app.seen.id},
                                           {"name", app.seen.name},
                                           {"count", app.seen.count},
                                           {"last", app.seen.last},
                                           {"icon", alert.icon},
                                           {"repeat", alert.repeat},
                                           {"pattern", alert.pattern},
                                           {"preview", alert.preview},
                                           {"ownTable", app.hasOwnTable}});
  }
  return list;
}

/// None where the companion cannot be asked.
std::optional<std::vector<SeenApp>> askCompanion(const Context& context) {
  const auto session = context.openSession();
  if (!session) {
    return std::nullopt;
  }
  const auto companion = (*session)->properties(Peer::companion);
  if (!companion || !*companion || !(*companion)->contains("Apps")) {
    return std::nullopt;
  }
  return seenAppsOf(**companion);
}

}  // namespace

void AppsCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("apps", "Show and set what apps' notifications do");
  command->require_subcommand(1);
  const auto chosen = [this, choose](ExitStatus (AppsCommand::*run)(const Context&) const) {
    return [this, choose, run] {
      choose([this, run](const Context& context) { return (this->*run)(context); });
    };
  };
  const auto addApp = [this](CLI::App* subcommand) {
    subcommand->add_option("id", app_, "the app's identifier, as \"apps list\" shows it")
        ->required()
        ->type_name("ID");
  };
  auto* list = command->add_subcommand(
      "list", "List the apps that have notified or have settings, with what they get");
  list->add_flag("--names", namesOnly_, "only the identifiers, one a line");
  list->callback(chosen(&AppsCommand::list));

  auto* set = command->add_subcommand("set", "Set what an app's notifications do");
  addApp(set);
  const auto addOption = [this, set](const char* name, const char* type, const char* description) {
    set->add_option_function<std::string>(
           std::string("--") + name,
           [this, name](const std::string& value) { given_[name] = value; }, description)
        ->type_name(type);
  };
  addOption("icon", "N|NAME", "the icon, by number or name (\"apps icons\"); none: no alert");
  addOption("repeat", "N", "vibrate once more than this");
  addOption("pattern", "N", "how it vibrates, 0 to 8");
  addOption("preview", "on|off", "show the text");
  set->callback(chosen(&AppsCommand::set));

  auto* test = command->add_subcommand("test", "Try the alert of an app on the band");
  addApp(test);
  test->callback(chosen(&AppsCommand::test));

  command->add_subcommand("icons", "List the icons that have a name")->callback([choose] {
    choose(icons);
  });
}

ExitStatus AppsCommand::list(const Context& context) const {
  const auto editor = SettingsEditor::open(context.files, context.paths.settings);
  const auto seen = askCompanion(context);
  if (!editor && !namesOnly_) {
    return context.fail(ExitStatus::failed, editor.error().localizedDescription);
  }
  const auto apps = knownApps(seen.value_or(std::vector<SeenApp>{}),
                              editor ? editor->settings() : settings::Settings{});
  if (namesOnly_) {
    for (const KnownApp& app : apps) {
      context.console.print(printable(app.seen.id) + "\n");
    }
    return ExitStatus::done;
  }
  if (!seen) {
    context.console.complain(
        "the companion does not tell which apps have notified; these are the ones with settings");
  }
  context.console.print(context.json ? jsonText(listJson(apps), JsonLayout::indented) + "\n"
                                     : listText(apps, context));
  return ExitStatus::done;
}

ExitStatus AppsCommand::set(const Context& context) const {
  if (app_.empty()) {
    return context.fail(
        ExitStatus::badUsage,
        "an app's identifier is not empty; \"apps list\" shows those that are known");
  }
  if (given_.empty()) {
    return context.fail(ExitStatus::badUsage,
                        "nothing to set: give --icon, --repeat, --pattern or --preview");
  }
  auto editor = SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    return context.fail(ExitStatus::failed, editor.error().localizedDescription);
  }
  for (const settings::SettingKey& key : settings::appSettingKeys()) {
    const auto given = given_.find(std::string(key.name));
    if (given == given_.end()) {
      continue;
    }
    std::string word = given->second;
    if (key.name == "icon") {
      const auto number = iconFromText(word);
      if (!number) {
        return context.fail(ExitStatus::badUsage, number.error().localizedDescription);
      }
      word = fmt::format("{}", *number);
    }
    const auto value = settings::settingValue(key, {word});
    if (!value) {
      return context.fail(ExitStatus::badUsage, value.error().localizedDescription);
    }
    if (const auto error = editor->set({"apps", app_, std::string(key.name)}, *value)) {
      return context.fail(ExitStatus::failed, error->localizedDescription);
    }
  }
  if (const auto error = editor->save(context.files)) {
    return context.fail(ExitStatus::failed, error->localizedDescription);
  }
  context.warnWithoutCompanion();
  return ExitStatus::done;
}

ExitStatus AppsCommand::test(const Context& context) const {
  if (app_ == kOtherApps) {
    return context.fail(ExitStatus::badUsage,
                        "\"*\" stands for every other app; name one that has notified");
  }
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  if (const std::string silence = silenceOf(context, app_, askCompanion(context));
      !silence.empty()) {
    return context.fail(ExitStatus::failed, silence);
  }
  const auto error = (*session)->tellDaemon("appChanged", {{"appInfo", app_}});
  return error ? context.fail(*error) : ExitStatus::done;
}

ExitStatus AppsCommand::icons(const Context& context) {
  std::vector<std::vector<std::string>> rows;
  platform::Array list;
  for (const IconName& icon : kIconNames) {
    rows.push_back(
        {fmt::format("{}", icon.number), std::string(icon.name), std::string(icon.meaning)});
    list.emplace_back(platform::Dictionary{
        {"number", icon.number}, {"name", icon.name}, {"meaning", icon.meaning}});
  }
  context.console.print(context.json ? jsonText(list, JsonLayout::indented) + "\n"
                                     : alignedRows(rows));
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
