#include "ctl/WatchCommand.h"

#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/EventText.h"
#include "ctl/Json.h"
#include "ctl/TimeText.h"

namespace wrixel2::ctl {

void WatchCommand::declare(CLI::App& program, const Choose& choose) {
  program
      .add_subcommand("watch",
                      "Tell what happens as it happens, a line each (--json: JSON lines), until "
                      "Ctrl-C")
      ->callback([choose] { choose(run); });
}

ExitStatus WatchCommand::run(const Context& context) {
  const auto session = context.openSession();
  if (!session) {
    return context.fail(ExitStatus::notRunning, session.error().localizedDescription);
  }
  const auto show = [&context](EventText event) {
    const auto now = context.clock.now();
    if (context.json) {
      event.json.insert_or_assign("time", internetTime(now, context.timeZone));
      context.console.print(jsonText(event.json, JsonLayout::oneLine) + "\n");
    } else {
      context.console.print(timeOfDay(now, context.timeZone) + "  " + event.line + "\n");
    }
  };
  SessionEvents events;
  events.statusChanged = [&show, &context](const platform::Dictionary& changed) {
    for (const auto& [property, value] : changed) {
      show(EventText::ofStatus(property, value, context.clock.now(), context.timeZone));
    }
  };
  events.posted = [&show](const std::string& name) { show(EventText::ofPosting(name)); };
  events.distributed = [&show](Peer, const platform::Notification& notification) {
    show(EventText::ofNotification(notification));
  };
  events.peerChanged = [&show](Peer peer, bool runs) {
    show(EventText::ofProgram(peer == Peer::daemon ? "daemon" : "companion", runs));
  };
  const auto following = (*session)->follow(std::move(events));
  if (!following) {
    return context.fail(ExitStatus::failed, following.error().localizedDescription);
  }
  const auto runs = (*session)->isRunning(Peer::daemon);
  if (runs && !*runs) {
    context.console.complain("the daemon does not run; waiting for it");
  }
  return (*session)->serveUntilInterrupted()
             ? ExitStatus::done
             : context.fail(ExitStatus::failed, "the session has ended");
}

}  // namespace wrixel2::ctl
