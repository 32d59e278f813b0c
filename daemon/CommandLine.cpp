#include "daemon/CommandLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fmt/format.h>
#include <getopt.h>
#include <unistd.h>

namespace wrixel2::daemon {

namespace {

constexpr int kBadUsage = 2;

constexpr const char* kHelp = R"(Usage: wrixel2d [OPTION]...
Keeps a fitness band in service: forwards notifications and calls, measures, reminds.

  --band bluez|virtual      the real band over BlueZ, or the embedded virtual one [bluez]
  --adapter hciN            the Bluetooth adapter [the first powered one, else the first]
  --log syslog|stderr       where log lines go [syslog; stderr where that is a terminal]
  --log-private             show the pairing key and message texts in the log
  --root DIR                use the phone's own absolute paths below this directory
  --system-version VERSION  the platform version that the daemon sees [9.0]
  -h, --help                print this and exit
  --version                 print the version and exit

More is in wrixel2d(8).
)";

enum Letter : int {
  kUnknown = '?',
  kWithoutArgument = ':',
  kHelpLetter = 'h',
  kVersion = 256,
  kBand,
  kAdapter,
  kLog,
  kLogPrivate,
  kRoot,
  kSystemVersion,
};

constexpr std::array<option, 9> kOptions{{
    {"help", no_argument, nullptr, kHelpLetter},
    {"version", no_argument, nullptr, kVersion},
    {"band", required_argument, nullptr, kBand},
    {"adapter", required_argument, nullptr, kAdapter},
    {"log", required_argument, nullptr, kLog},
    {"log-private", no_argument, nullptr, kLogPrivate},
    {"root", required_argument, nullptr, kRoot},
    {"system-version", required_argument, nullptr, kSystemVersion},
    {nullptr, 0, nullptr, 0},
}};

bool isNumber(std::string_view text) {
  return !text.empty() &&
         std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

bool isVersion(std::string_view version) {
  const auto dot = version.find('.');
  return isNumber(version.substr(0, dot)) &&
         (dot == std::string_view::npos || isVersion(version.substr(dot + 1)));
}

bool isAdapter(std::string_view name) {
  return name.starts_with("hci") && isNumber(name.substr(3));
}

/// What is wrong with a value that is to be one of two, or empty; tells whether it is the second.
std::string takeChoice(std::string_view option, std::string_view first, std::string_view second,
                       const std::string& value, bool& isSecond) {
  isSecond = value == second;
  return isSecond || value == first
             ? ""
             : fmt::format("{} is {} or {}, not '{}'", option, first, second, value);
}

/// What is wrong with the option's value, or empty.
std::string take(int letter, const std::string& value, CommandLine& result) {
  std::error_code error;
  switch (letter) {
    case kBand:
      return takeChoice("--band", "bluez", "virtual", value, result.isVirtualBand);
    case kAdapter:
      result.adapter = value;
      return isAdapter(value) ? "" : fmt::format("'{}' is no adapter name such as hci0", value);
    case kLog:
      return takeChoice("--log", "syslog", "stderr", value, result.logsToStandardError);
    case kLogPrivate:
      result.logPrivate = true;
      return "";
    case kRoot:
      if (value.empty()) {
        return "--root needs a directory";
      }
      result.root = std::filesystem::absolute(value, error).lexically_normal().string();
      return error ? fmt::format("--root {}: {}", value, error.message()) : "";
    default:
      result.systemVersion = value;
      return isVersion(value) ? "" : fmt::format("'{}' is no version such as 9.0", value);
  }
}

/// Of several letters in one argument getopt has not gone past the argument yet.
std::string refusedOption(char** argv) {
  const bool isLetter = ::optopt > 0 && ::optopt < kVersion;
  return isLetter ? fmt::format("-{}", static_cast<char>(::optopt)) : argv[::optind - 1];
}

CommandLineOutcome badUsage(std::string_view why) {
  std::fputs(fmt::format("wrixel2d: {} (try --help)\n", why).c_str(), stderr);
  return {{}, kBadUsage};
}

CommandLineOutcome said(const char* text) {
  return {{}, std::fputs(text, stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1};
}

}  // namespace

CommandLineOutcome parseCommandLine(int argc, char** argv) {
  CommandLineOutcome outcome;
  outcome.commandLine.logsToStandardError = ::isatty(STDERR_FILENO) != 0;
  ::opterr = 0;
  // With '+' the first argument that is no option ends the options: none is expected.
  int letter = 0;
  while ((letter = ::getopt_long(argc, argv, "+:h", kOptions.data(), nullptr)) != -1) {
    switch (letter) {
      case kHelpLetter:
        return said(kHelp);
      case kVersion:
        return said("wrixel2d " WRIXEL2_VERSION "\n");
      case kUnknown:
        return badUsage(fmt::format("'{}' is no option of this program", refusedOption(argv)));
      case kWithoutArgument:
        return badUsage(fmt::format("{} needs a value", argv[::optind - 1]));
      default:
        break;
    }
    if (const auto problem = take(letter, ::optarg != nullptr ? ::optarg : "", outcome.commandLine);
        !problem.empty()) {
      return badUsage(problem);
    }
  }
  if (::optind < argc) {
    return badUsage(fmt::format("'{}' is too much: there are only options", argv[::optind]));
  }
  return outcome;
}

}  // namespace wrixel2::daemon
