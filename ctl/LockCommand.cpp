#include "ctl/LockCommand.h"

#include <string>
#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "ctl/Waiting.h"

namespace wrixel2::ctl {

namespace {

constexpr auto kAnswerTime = std::chrono::seconds(5);

/// Posts the name and waits until it is known whether, or to which band, the daemon is locked.
platform::Result<std::string> lockedToAfter(const Context& context, Session& session,
                                            std::string_view name, bool wantsLock) {
  const auto status = session.properties(Peer::daemon);
  if (!status) {
    return status.error();
  }
  const platform::Dictionary known = status->value_or(platform::Dictionary{});
  if (wantsLock && platform::textForKey(known, "Band").value_or("").empty()) {
    return failure(ExitStatus::timedOut,
                   "the daemon knows no band yet; let it connect one first (\"wrixel2ctl steps\" "
                   "or \"wrixel2ctl measure\")");
  }
  std::string lockedTo = platform::textForKey(known, "LockedTo").value_or("");
  SessionEvents events;
  events.statusChanged = [&lockedTo](const platform::Dictionary& changed) {
    lockedTo = platform::textForKey(changed, "LockedTo").value_or(lockedTo);
  };
  const auto waiting = Waiting::start(context, session, std::move(events));
  if (!waiting) {
    return waiting.error();
  }
  if (const auto error = session.post(name)) {
    return *error;
  }
  if (const auto error =
          (*waiting)->until([&] { return lockedTo.empty() != wantsLock; }, kAnswerTime, "Waiting",
                            "the daemon has not answered; its log may say why")) {
    return *error;
  }
  return lockedTo;
}

void report(const Context& context, const std::string& lockedTo) {
  context.console.print(
      context.json
          ? jsonText(platform::Dictionary{{"lockedTo", lockedTo}}, JsonLayout::oneLine) + "\n"
      : lockedTo.empty() ? "Not locked to any band.\n"
                         : "Locked to " + printable(lockedTo) + ".\n");
}

}  // namespace

void LockCommand::declare(CLI::App& program, const Choose& choose) {
  program.add_subcommand("lock", "Stay with the band now known, never connect another")
      ->callback([choose] { choose(LockCommand::lock); });
  program.add_subcommand("unlock", "Take any band again")->callback([choose] {
    choose(LockCommand::unlock);
  });
}

ExitStatus LockCommand::lock(const Context& context) {
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  const auto lockedTo =
      lockedToAfter(context, **session, "org.corvale.wrixel2.lockToCurrentBand", true);
  if (!lockedTo) {
    return context.fail(lockedTo.error());
  }
  report(context, *lockedTo);
  return ExitStatus::done;
}

ExitStatus LockCommand::unlock(const Context& context) {
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  const auto lockedTo = lockedToAfter(context, **session, "org.corvale.wrixel2.removeLock", false);
  if (!lockedTo) {
    return context.fail(lockedTo.error());
  }
  report(context, *lockedTo);
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
