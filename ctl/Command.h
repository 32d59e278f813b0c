#pragma once

#include <functional>

#include "ctl/Context.h"
#include "ctl/ExitStatus.h"

namespace CLI {
class App;
}

namespace wrixel2::ctl {

/// What the parsed command line asks for. Called at most once.
using Action = std::function<ExitStatus(const Context& context)>;

/// One word of the command line with what may follow it. It outlives the parser, which keeps
/// references to its options.
class Command {
 public:
  /// Takes the action of the command that was given.
  using Choose = std::function<void(Action action)>;

  virtual ~Command() = default;
  /// Adds itself, its options and its own subcommands to the parser.
  virtual void declare(CLI::App& program, const Choose& choose) = 0;
};

}  // namespace wrixel2::ctl
