#include "ctl/StopCommand.h"

#include <CLI/CLI.hpp>

namespace wrixel2::ctl {

void StopCommand::declare(CLI::App& program, const Choose& choose) {
  program.add_subcommand("stop", "Stop what the band is doing, such as ringing")
      ->callback([choose] { choose(run); });
}

ExitStatus StopCommand::run(const Context& context) {
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  const auto error = (*session)->tellDaemon("stopVibration", {});
  return error ? context.fail(*error) : ExitStatus::done;
}

}  // namespace wrixel2::ctl
