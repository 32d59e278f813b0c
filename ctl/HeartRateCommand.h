#pragma once

#include <string>

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "heart-rate": the stored heart rates, for people and other programs.
class HeartRateCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  ExitStatus run(const Context& context) const;

  std::string since_;
  std::string until_ = "now";
  bool asCsv_ = false;
  bool asDataPoints_ = false;
  bool asPlot_ = false;
};

}  // namespace wrixel2::ctl
