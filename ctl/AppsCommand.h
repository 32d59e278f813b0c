#pragma once

#include <map>
#include <string>

#include "ctl/Command.h"

namespace wrixel2::ctl {

/// "apps": which apps have notified, and what their notifications do.
class AppsCommand final : public Command {
 public:
  void declare(CLI::App& program, const Choose& choose) override;

 private:
  ExitStatus list(const Context& context) const;
  ExitStatus set(const Context& context) const;
  ExitStatus test(const Context& context) const;
  static ExitStatus icons(const Context& context);

  bool namesOnly_ = false;
  std::string app_;
  /// As given, by the names of the keys in the app's table.
  std::map<std::string, std::string> given_;
};

}  // namespace wrixel2::ctl
