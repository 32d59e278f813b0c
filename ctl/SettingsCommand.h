#pragma once

#include <string>
#include <vector>

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "settings": shows and changes the settings file, one entry at a time.
class SettingsCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  ExitStatus list(const Context& context) const;
  ExitStatus get(const Context& context) const;
  ExitStatus set(const Context& context) const;
  ExitStatus unset(const Context& context) const;

  bool namesOnly_ = false;
  std::string key_;
  std::vector<std::string> values_;
};

}  // namespace wrixel2::ctl
