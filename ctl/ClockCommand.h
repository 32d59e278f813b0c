#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "clock": the band's clock.
class ClockCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus sync(const Context& context);
};

}  // namespace wrixel2::ctl
