#include "Program.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string_view>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/ArgumentPointers.h"

namespace wrixel2::integration {

namespace {

using platform::linux::argumentPointers;

/// Signals that the test's own loop has blocked are the program's again.
posix_spawnattr_t* withoutBlockedSignals(posix_spawnattr_t& attributes) {
  sigset_t none;
  ::sigemptyset(&none);
  ::posix_spawnattr_init(&attributes);
  ::posix_spawnattr_setsigmask(&attributes, &none);
  ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
  return &attributes;
}

/// Also within a shell's command.
std::string withOtherPrograms(std::string argument) {
  constexpr std::string_view kOwn = WRIXEL2_PROGRAMS "/";
  const char* const other = otherPrograms();
  for (auto at = other != nullptr ? argument.find(kOwn) : std::string::npos;
       at != std::string::npos; at = argument.find(kOwn, at)) {
    argument.replace(at, kOwn.size() - 1, other);
    at += std::strlen(other);
  }
  return argument;
}

}  // namespace

const char* otherPrograms() { return std::getenv("WRIXEL2_PROGRAMS"); }

Program::Program(platform::linux::LinuxRunLoop& loop, const std::vector<std::string>& arguments,
                 const Environment& environment)
    : loop_(loop) {
  std::vector<std::string> ownArguments;
  std::ranges::transform(arguments, std::back_inserter(ownArguments), withOtherPrograms);
  std::vector<std::string> ownEnvironment;
  for (const auto& [name, value] : environment) {
    ownEnvironment.push_back(name + "=" + value);
  }
  std::array<int, 2> output{};
  std::array<int, 2> errors{};
  EXPECT_EQ(::pipe2(output.data(), O_CLOEXEC), 0);
  EXPECT_EQ(::pipe2(errors.data(), O_CLOEXEC), 0);
  listen(output_, output[0]);
  listen(errors_, errors[0]);

  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_adddup2(&actions, errors[1], STDERR_FILENO);
  posix_spawnattr_t attributes;
  const int failure = ::posix_spawnp(
      &process_, ownArguments.front().c_str(), &actions, withoutBlockedSignals(attributes),
      argumentPointers(ownArguments).data(), argumentPointers(ownEnvironment).data());
  ::posix_spawnattr_destroy(&attributes);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(output[1]);
  ::close(errors[1]);
  EXPECT_EQ(failure, 0) << ownArguments.front();
}

Program::~Program() {
  if (process_ > 0 && !status_) {
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
  }
}

void Program::listen(Pipe& pipe, int descriptor) {
  pipe.readingEnd = platform::linux::FileDescriptor(descriptor);
  sd_event_add_io(loop_.event(), &pipe.source, descriptor, EPOLLIN, onReadable, &pipe);
}

int Program::onReadable(sd_event_source* source, int descriptor, unsigned /*events*/,
                        void* userdata) {
  auto* pipe = static_cast<Pipe*>(userdata);
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
  if (count > 0) {
    pipe->text.append(buffer.data(), static_cast<std::size_t>(count));
  } else if (count == 0) {
    pipe->isAtEnd = true;
    sd_event_source_set_enabled(source, SD_EVENT_OFF);
  }
  return 0;
}

void Program::signal(int number) const {
  // Never for a program that did not start: to -1, a signal would go to every process there is.
  if (process_ > 0) {
    ::kill(process_, number);
  }
}

int Program::timesLogged(const std::string& text) const {
  int count = 0;
  for (std::size_t at = errors_.text.find(text); at != std::string::npos;
       at = errors_.text.find(text, at + text.size())) {
    ++count;
  }
  return count;
}

std::optional<int> Program::status() {
  // Both pipes end when the process does; it may be waited for then.
  if (!status_ && output_.isAtEnd && errors_.isAtEnd) {
    int status = 0;
    ::waitpid(process_, &status, 0);
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  }
  return status_;
}

}  // namespace wrixel2::integration
