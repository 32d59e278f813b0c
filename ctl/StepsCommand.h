#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "steps": what the band has counted.
class StepsCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus run(const Context& context);
};

}  // namespace wrixel2::ctl
