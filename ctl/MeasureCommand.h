#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "measure": one heart rate, now.
class MeasureCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus run(const Context& context);
};

}  // namespace wrixel2::ctl
