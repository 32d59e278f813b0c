#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "status": how the daemon, the band and the companion are doing.
class StatusCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus run(const Context& context);
};

}  // namespace wrixel2::ctl
