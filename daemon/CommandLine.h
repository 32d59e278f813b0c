#pragma once

#include <optional>
#include <string>

namespace wrixel2::daemon {

/// What the daemon's command line chooses. The texts are checked; the defaults are those of a
/// command line without options, but for the log, which depends on where standard error goes.
struct CommandLine {
  bool isVirtualBand = false;
  std::optional<std::string> adapter;  ///< "hci0"; none: any
  bool logsToStandardError = false;
  bool logPrivate = false;
  std::optional<std::string> root;  ///< absolute; none: the XDG directories
  std::string systemVersion = "9.0";
};

/// Reads main's arguments. Where the program is not to go on (help, version, a wrong option) this
/// has printed what there is to say, and the status is the program's.
struct CommandLineOutcome {
  CommandLine commandLine;
  std::optional<int> status;
};
CommandLineOutcome parseCommandLine(int argc, char** argv);

}  // namespace wrixel2::daemon
