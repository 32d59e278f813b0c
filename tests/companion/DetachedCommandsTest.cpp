#include <fstream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "companion/DetachedCommands.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::companion {
namespace {

/// Real programs: the loop waits for their ends, and for nothing else.
class DetachedCommandsTest : public testing::Test {
 protected:
  void runToEnd(const std::vector<std::string>& command) {
    children.run(command, "button.once");
    EXPECT_TRUE(
        loop.runUntil([this] { return children.running() == 0; }, std::chrono::seconds(10)));
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
  }
  std::string contents(const char* name) const {
    std::ostringstream text;
    text << std::ifstream(directory.path(name)).rdbuf();
    return text.str();
  }

  platform::linux::TemporaryDirectory directory;
  platform::linux::RecordingLog log;
  platform::linux::LocalTimeZone zone;
  platform::linux::LinuxRunLoop loop{log, zone};
  DetachedCommands children{loop, log};
};

TEST_F(DetachedCommandsTest, GivesAProgramItsArgumentsAndNothingOfItsOwn) {
  // Left open over exec on purpose, and a signal that we ignore.
  const int leak = ::open("/dev/null", O_RDONLY);
  const auto before = ::signal(SIGPIPE, SIG_IGN);
  const std::string script = "cd " + directory.path() + R"(
    input=$(readlink /proc/$$/fd/0) output=$(readlink /proc/$$/fd/1)
    echo "$input $output" >files
    test -e /proc/$$/fd/)" + std::to_string(leak) +
                             R"( && echo leak >>files
    sed -nE 's/^(SigBlk|SigIgn):.0{7}[01][08]0{7}$/no \1/p' /proc/self/status >signals
    echo to nowhere
    printf '%s|' "$@" >arguments
  )";
  runToEnd({"sh", "-c", script, "sh", "a b", "$HOME; exit", ""});
  ::signal(SIGPIPE, before);
  ::close(leak);
  EXPECT_EQ(contents("files"), "/dev/null /dev/null\n");
  // Signals 32 and 33 are the C library's own, and nobody can set them.
  EXPECT_EQ(contents("signals"), "no SigBlk\nno SigIgn\n");
  EXPECT_EQ(contents("arguments"), "a b|$HOME; exit||");
  EXPECT_EQ(log.lines, std::vector<std::string>{});
}

TEST_F(DetachedCommandsTest, ABoundedNumberRuns) {
  const std::string pipe = directory.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  for (std::size_t burst = 1; burst <= 2; ++burst) {
    for (int i = 0; i < 100; ++i) {
      children.run({"sh", "-c", "read line <" + pipe + "; echo >>" + directory.path("ends")}, "x");
    }
    EXPECT_EQ(children.running(), DetachedCommands::kMostRunning);
    EXPECT_EQ(log.count("WARN sh of x is not started"), burst);
    const int writer = ::open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    const std::string lines(DetachedCommands::kMostRunning, '\n');
    ASSERT_EQ(::write(writer, lines.data(), lines.size()), static_cast<ssize_t>(lines.size()));
    EXPECT_TRUE(
        loop.runUntil([this] { return children.running() == 0; }, std::chrono::seconds(10)));
    ::close(writer);
    EXPECT_EQ(contents("ends"), std::string(burst * DetachedCommands::kMostRunning, '\n'));
  }
}

TEST_F(DetachedCommandsTest, SaysWhatDidNotWork) {
  const struct {
    std::vector<std::string> command;
    const char* line;
  } cases[] = {
      {{"/nowhere/program", "x"}, "ERROR /nowhere/program of button.once cannot be started"},
      {{"wrixel2-no-such-program"}, "ERROR wrixel2-no-such-program of button.once cannot be"},
      {{directory.path()}, " of button.once cannot be started"},
      {{"sh", "-c", "exit 3"}, "WARN sh of button.once failed with status 3"},
      {{"sh", "-c", "kill -9 $$"}, "WARN sh of button.once was ended by signal 9"},
  };
  for (const auto& item : cases) {
    log.lines.clear();
    runToEnd(item.command);
    EXPECT_EQ(log.count(item.line), 1U) << item.line;
  }
}

}  // namespace
}  // namespace wrixel2::companion
