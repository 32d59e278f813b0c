#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/wait.h>

namespace {

struct Outcome {
  int status = -1;
  std::string output;
};

Outcome run(const std::string& arguments) {
  // Without a session bus, and with both outputs told apart by their order only.
  const std::string command = "env -u DBUS_SESSION_BUS_ADDRESS XDG_RUNTIME_DIR=/nonexistent " +
                              std::string(WRIXEL2D_PROGRAM) + " " + arguments + " 2>&1";
  Outcome outcome;
  FILE* const pipe = popen(command.c_str(), "r");
  std::array<char, 4096> buffer{};
  while (const auto count = fread(buffer.data(), 1, buffer.size(), pipe)) {
    outcome.output.append(buffer.data(), count);
  }
  outcome.status = WEXITSTATUS(pclose(pipe));
  return outcome;
}

TEST(CommandLineTest, HelpNamesEveryOption) {
  const auto help = run("--help");
  EXPECT_EQ(help.status, 0);
  for (const auto* option :
       {"--band", "--adapter", "--log", "--log-private", "--root", "--system-version"}) {
    EXPECT_NE(help.output.find(option), std::string::npos) << option;
  }
  EXPECT_EQ(run("--version").status, 0);
  EXPECT_TRUE(run("--version").output.starts_with("wrixel2d "));
}

TEST(CommandLineTest, BadUsageIsOneLineAndStatusTwoAndWhatCannotStartStatusOne) {
  const struct {
    int status;
    std::vector<const char*> commandLines;
  } kCases[] = {
      {1, {"--band virtual --log stderr", "--band bluez", ""}},  // there is no bus
      {2,
       {"--nonsense", "surplus", "--band", "--band other", "--log file", "--adapter eth0",
        "--adapter hci", "--root ''", "--system-version new", "--system-version 9.",
        "--system-version ''", "--log-private=maybe", "-x", "-xh", "--log=", "--lo syslog ", "-"}},
  };
  for (const auto& [status, commandLines] : kCases) {
    for (const auto* arguments : commandLines) {
      SCOPED_TRACE(arguments);
      const auto outcome = run(arguments);
      EXPECT_EQ(outcome.status, status);
      EXPECT_TRUE(outcome.output.starts_with("wrixel2d: ")) << outcome.output;
      EXPECT_EQ(std::ranges::count(outcome.output, '\n'), 1) << outcome.output;
    }
  }
}

}  // namespace
