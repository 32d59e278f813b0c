#pragma once

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "lock" and "unlock": whether the daemon stays with one band.
class LockCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  static ExitStatus lock(const Context& context);
  static ExitStatus unlock(const Context& context);
};

}  // namespace wrixel2::ctl
