#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "watch": what happens, as it happens.
class WatchCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus run(const Context& context);
};

}  // namespace wrixel2::ctl
