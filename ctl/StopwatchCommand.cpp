#include "ctl/StopwatchCommand.h"

#include <optional>
#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "ctl/Waiting.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

const settings::KeyPath kSwitch = {"stopwatchSwitch"};
constexpr auto kSettingTime = std::chrono::seconds(10);
constexpr auto kElapsedTime = std::chrono::seconds(30);

/// False where it stands so already.
platform::Result<bool> setSwitch(const Context& context, bool isOn) {
  auto editor = settings::SettingsEditor::open(context.files, context.paths.settings);
  if (!editor) {
    return editor.error();
  }
  const auto* entry = editor->find(kSwitch);
  if ((entry != nullptr && entry->value.boolValue()) == isOn) {
    return false;
  }
  if (auto error = editor->set(kSwitch, isOn)) {
    return *error;
  }
  if (auto error = editor->save(context.files)) {
    return *error;
  }
  return true;
}

/// The daemon and the companion, which tells it of the changed file.
platform::Result<std::unique_ptr<Session>> openSessionWithBoth(const Context& context) {
  auto session = context.openSessionWithDaemon();
  if (session) {
    const auto runs = (*session)->isRunning(Peer::companion);
    if (!runs || !*runs) {
      return failure(ExitStatus::notRunning,
                     "the companion does not run, which tells the daemon of changed settings");
    }
  }
  return session;
}

}  // namespace

void StopwatchCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("stopwatch", "Use the band's clock as a stopwatch");
  command->require_subcommand(1);
  command->add_subcommand("start", "Let the band's clock count up from 00:00:01")
      ->callback([choose] { choose(StopwatchCommand::start); });
  command->add_subcommand("stop", "Set the band's clock right again and tell the elapsed time")
      ->callback([choose] { choose(StopwatchCommand::stop); });
}

ExitStatus StopwatchCommand::start(const Context& context) {
  const auto session = openSessionWithBoth(context);
  if (!session) {
    return context.fail(session.error());
  }
  bool isAnnounced = false;
  SessionEvents events;
  events.posted = [&isAnnounced](const std::string& name) {
    isAnnounced =
        isAnnounced || name == "org.corvale.wrixel2prefs.preferencechanged/stopwatchChanged";
  };
  const auto waiting = Waiting::start(context, **session, std::move(events));
  if (!waiting) {
    return context.fail(waiting.error());
  }
  const auto changed = setSwitch(context, true);
  if (!changed) {
    return context.fail(changed.error());
  }
  if (!*changed) {
    return context.fail(ExitStatus::failed, "the stopwatch runs already");
  }
  const auto error =
      (*waiting)->until([&isAnnounced] { return isAnnounced; }, kSettingTime, "Starting",
                        "the companion has not noticed the changed settings");
  return error ? context.fail(*error) : ExitStatus::done;
}

ExitStatus StopwatchCommand::stop(const Context& context) {
  const auto session = openSessionWithBoth(context);
  if (!session) {
    return context.fail(session.error());
  }
  std::optional<std::string> elapsed;
  SessionEvents events;
  events.distributed = [&elapsed](Peer by, const platform::Notification& notification) {
    if (by == Peer::daemon && notification.name == "org.corvale.wrixel2.stopwatch") {
      elapsed = platform::textForKey(notification.userInfo, "timeDifference").value_or("");
    }
  };
  const auto waiting = Waiting::start(context, **session, std::move(events));
  if (!waiting) {
    return context.fail(waiting.error());
  }
  const auto changed = setSwitch(context, false);
  if (!changed) {
    return context.fail(changed.error());
  }
  if (!*changed) {
    return context.fail(ExitStatus::failed, "the stopwatch does not run");
  }
  if (const auto error =
          (*waiting)->until([&elapsed] { return elapsed.has_value(); }, kElapsedTime, "Stopping",
                            "the stopwatch is switched off, but the band was not "
                            "reached: its clock is set when it is")) {
    return context.fail(*error);
  }
  context.console.print(
      context.json
          ? jsonText(platform::Dictionary{{"elapsed", *elapsed}}, JsonLayout::oneLine) + "\n"
          : printable(*elapsed) + "\n");
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
