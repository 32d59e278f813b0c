#include "ctl/ClockCommand.h"

#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/Waiting.h"
#include "settings/SettingsEditor.h"

namespace wrixel2::ctl {

namespace {

constexpr auto kLinkTime = std::chrono::seconds(60);

bool runsStopwatch(const Context& context) {
  const auto editor = settings::SettingsEditor::open(context.files, context.paths.settings);
  const auto* entry = editor ? editor->find({"stopwatchSwitch"}) : nullptr;
  return entry != nullptr && entry->value.boolValue();
}

}  // namespace

void ClockCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("clock", "Set the band's clock");
  command->require_subcommand(1);
  command->add_subcommand("sync", "Write the present time to the band")->callback([choose] {
    choose(sync);
  });
}

ExitStatus ClockCommand::sync(const Context& context) {
  const auto session = context.openSessionForBand();
  if (!session) {
    return context.fail(session.error());
  }
  if (runsStopwatch(context)) {
    return context.fail(ExitStatus::failed,
                        "the stopwatch runs on the band's clock; stop it first with \"wrixel2ctl "
                        "stopwatch stop\"");
  }
  const auto status = (*session)->properties(Peer::daemon);
  if (!status) {
    return context.fail(status.error());
  }
  bool isReady = *status && platform::boolForKey(**status, "Initialized");
  SessionEvents events;
  events.statusChanged = [&isReady](const platform::Dictionary& changed) {
    if (changed.contains("Initialized")) {
      isReady = platform::boolForKey(changed, "Initialized");
    }
  };
  const auto waiting = Waiting::start(context, **session, std::move(events));
  if (!waiting) {
    return context.fail(waiting.error());
  }
  if (const auto error = (*session)->post("org.corvale.wrixel2.syncClock")) {
    return context.fail(*error);
  }
  // The band does not acknowledge the time: that it is there to take it is all there is to know.
  const auto error =
      (*waiting)->until([&isReady] { return isReady; }, kLinkTime, "Looking for the band",
                        "the band was not reached; it gets the time when the daemon reaches it");
  if (error) {
    return context.fail(*error);
  }
  if (!context.json) {
    context.console.print("The time is written to the band.\n");
  }
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
