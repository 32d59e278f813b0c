#include "ctl/NotifyCommand.h"

#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/AppAlerts.h"

namespace wrixel2::ctl {

void NotifyCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("notify", "Send a notification to the band");
  command->add_option("title", title_, "what or who it is")->required()->type_name("TITLE");
  command->add_option("text", text_, "what it says")->type_name("TEXT");
  command->add_option("--app", app_, "the app whose settings and rules apply")
      ->type_name("ID")
      ->capture_default_str();
  command->callback(
      [this, choose] { choose([this](const Context& context) { return run(context); }); });
}

ExitStatus NotifyCommand::run(const Context& context) const {
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  const auto companion = (*session)->properties(Peer::companion);
  std::optional<std::vector<SeenApp>> seen;
  if (companion && *companion && (*companion)->contains("Apps")) {
    seen = seenAppsOf(**companion);
  }
  if (const std::string silence = silenceOf(context, app_, seen); !silence.empty()) {
    context.console.complain(silence);
  }
  platform::Dictionary userInfo{{"sectionID", app_}, {"title", title_}};
  if (!text_.empty()) {
    userInfo.insert_or_assign("message", text_);
  }
  const auto error = (*session)->tellDaemon("bulletinRequest", userInfo);
  return error ? context.fail(*error) : ExitStatus::done;
}

}  // namespace wrixel2::ctl
