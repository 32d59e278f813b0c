#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "stopwatch": the stopwatch on the band's clock, by its setting.
class StopwatchCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus start(const Context& context);
  static ExitStatus stop(const Context& context);
};

}  // namespace wrixel2::ctl
