#pragma once

#include <string>

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "key": the pairing key, which the daemon takes from the folder that this fills.
class KeyCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  ExitStatus import(const Context& context) const;
  ExitStatus show(const Context& context) const;

  std::string source_;
  bool isUnchecked_ = false;
  bool isRevealed_ = false;
};

}  // namespace wrixel2::ctl
