#include "ctl/CommandLine.h"

#include <algorithm>
#include <array>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/AppsCommand.h"
#include "ctl/ClockCommand.h"
#include "ctl/Command.h"
#include "ctl/DoctorCommand.h"
#include "ctl/HeartRateCommand.h"
#include "ctl/KeyCommand.h"
#include "ctl/LockCommand.h"
#include "ctl/MeasureCommand.h"
#include "ctl/NotifyCommand.h"
#include "ctl/SettingsCommand.h"
#include "ctl/StatusCommand.h"
#include "ctl/StepsCommand.h"
#include "ctl/StopCommand.h"
#include "ctl/StopwatchCommand.h"
#include "ctl/TextRows.h"
#include "ctl/WatchCommand.h"
#include "settings/SettingKeys.h"

namespace wrixel2::ctl {

namespace {

template <typename Made>
std::unique_ptr<Command> make() {
  return std::make_unique<Made>();
}

/// In the order in which --help lists them.
constexpr std::array kCommands = {
    make<StatusCommand>, make<DoctorCommand>, make<SettingsCommand>,  make<AppsCommand>,
    make<NotifyCommand>, make<StopCommand>,   make<MeasureCommand>,   make<HeartRateCommand>,
    make<StepsCommand>,  make<ClockCommand>,  make<StopwatchCommand>, make<KeyCommand>,
    make<LockCommand>,   make<WatchCommand>,
};

constexpr const char* kFooter =
    "Exit status: 0 done, 1 failed, 2 wrong usage, 3 the daemon or companion does not run,\n"
    "4 timed out, such as when the band was not reached. See wrixel2ctl(1).";

/// The parser only says that a command is missing. Empty where the first word is one, or an option.
std::string complaintAbout(const std::vector<std::string>& words, const CLI::App& program) {
  const auto word = std::find_if(words.begin(), words.end(),
                                 [](const std::string& text) { return !text.starts_with('-'); });
  if (word == words.end()) {
    return {};
  }
  std::vector<std::string_view> names;
  for (const CLI::App* command : program.get_subcommands({})) {
    names.push_back(command->get_name());
  }
  if (std::find(names.begin(), names.end(), *word) != names.end()) {
    return {};
  }
  const std::string_view nearest = settings::nearestName(*word, names);
  return fmt::format(
      "there is no command {}; {}", printable(*word),
      nearest.empty() ? "--help lists all" : fmt::format("did you mean {}?", nearest));
}

}  // namespace

ExitStatus runCommandLine(std::vector<std::string> words, Context context) {
  CLI::App program("Controls the service that keeps your fitness band.", "wrixel2ctl");
  program.set_version_flag("--version", "wrixel2ctl " WRIXEL2_VERSION);
  program.add_flag("--json", context.json, "output for programs");
  program.footer(kFooter);
  program.require_subcommand(1);
  program.fallthrough();
  Action action;
  std::vector<std::unique_ptr<Command>> commands;
  for (const auto& makeCommand : kCommands) {
    commands.push_back(makeCommand());
    commands.back()->declare(program, [&action](Action chosen) { action = std::move(chosen); });
  }
  if (const std::string complaint = complaintAbout(words, program); !complaint.empty()) {
    return context.fail(ExitStatus::badUsage, complaint);
  }
  std::reverse(words.begin(), words.end());  // as the parser takes them
  try {
    program.parse(words);
  } catch (const CLI::Success& success) {
    std::ostringstream out;
    program.exit(success, out, out);
    context.console.print(out.str());
    return ExitStatus::done;
  } catch (const CLI::ParseError& error) {
    return context.fail(ExitStatus::badUsage, std::string(error.what()) + " (try --help)");
  }
  return action(context);
}

}  // namespace wrixel2::ctl
