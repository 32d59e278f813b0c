#pragma once

#include <string>

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "notify": a notification to the band, by the rules for the app that it is said to be of.
class NotifyCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  ExitStatus run(const Context& context) const;

  std::string title_;
  std::string text_;
  std::string app_ = "wrixel2ctl";
};

}  // namespace wrixel2::ctl
