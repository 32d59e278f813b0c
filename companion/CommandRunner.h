#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace wrixel2::companion {

/// Runs programs of the owner's choice.
class CommandRunner {
 public:
  virtual ~CommandRunner() = default;
  /// The program and its arguments, without a shell; it is looked for in PATH unless its name has a
  /// slash. Not waited for. `setting` names what asks for it, for the log.
  virtual void run(const std::vector<std::string>& command, std::string_view setting) = 0;
};

}  // namespace wrixel2::companion
