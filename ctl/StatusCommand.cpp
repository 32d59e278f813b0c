#include "ctl/StatusCommand.h"

#include <CLI/CLI.hpp>

#include "ctl/Json.h"
#include "ctl/StatusReport.h"

namespace wrixel2::ctl {

void StatusCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand(
      "status", "Tell how the daemon, the band and the companion are doing, and what is wrong");
  command->callback([choose] { choose(run); });
}

ExitStatus StatusCommand::run(const Context& context) {
  auto session = context.openSession();
  if (!session) {
    return context.fail(ExitStatus::notRunning, session.error().localizedDescription);
  }
  const auto report = StatusReport::of(**session);
  if (!report) {
    return context.fail(ExitStatus::failed, report.error().localizedDescription);
  }
  context.console.print(context.json ? jsonText(report->json(), JsonLayout::indented) + "\n"
                                     : report->text(context.clock.now(), context.timeZone));
  return report->daemon ? ExitStatus::done : ExitStatus::notRunning;
}

}  // namespace wrixel2::ctl
