#include "bench/Process.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "platform/linux/ArgumentPointers.h"

namespace wrixel2::bench {

using platform::linux::argumentPointers;

namespace {

/// Of a file with a line "Name: number" an entry: the sums of numbers by name.
std::map<std::string, std::int64_t> numbersOf(const std::string& path) {
  std::map<std::string, std::int64_t> numbers;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (const auto colon = line.find(':'); colon != std::string::npos) {
      numbers[line.substr(0, colon)] += std::strtoll(line.c_str() + colon + 1, nullptr, 10);
    }
  }
  return numbers;
}

}  // namespace

Process::Process(std::vector<std::string> arguments, const Environment& environment) {
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) {
    variables.push_back(fmt::format("{}={}", name, value));
  }
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  const int failure =
      ::posix_spawn(&id_, arguments.front().c_str(), &actions, nullptr,
                    argumentPointers(arguments).data(), argumentPointers(variables).data());
  ::posix_spawn_file_actions_destroy(&actions);
  if (failure != 0) {
    fmt::print(stderr, "wrixel2_bench: {}: {}\n", arguments.front(), std::strerror(failure));
    std::exit(1);
  }
}

Process::~Process() {
  if (id_ > 0) {
    ::kill(id_, SIGKILL);
    ::waitpid(id_, nullptr, 0);
  }
}

void Process::signal(int number) const {
  if (id_ > 0) {
    ::kill(id_, number);
  }
}

bool Process::isRunning() {
  if (id_ > 0 && ::waitpid(id_, nullptr, WNOHANG) == id_) {
    id_ = -1;
  }
  return id_ > 0;
}

MemoryFigures Process::memory() const {
  // Pages of a file that has just been built count as written until they are on the disk.
  ::sync();
  auto numbers = numbersOf(fmt::format("/proc/{}/smaps_rollup", id_));
  return {.resident = numbers["Rss"],
          .proportional = numbers["Pss"],
          .unshared = numbers["Private_Clean"] + numbers["Private_Dirty"],
          .written = numbers["Private_Dirty"]};
}

std::chrono::nanoseconds Process::processorTime() const {
  clockid_t clock{};
  timespec time{};
  if (::clock_getcpuclockid(id_, &clock) == 0) {
    ::clock_gettime(clock, &time);
  }
  return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

std::int64_t Process::voluntarySwitches() const { return statusEntry("voluntary_ctxt_switches"); }

std::int64_t Process::threads() const { return statusEntry("Threads"); }

std::int64_t Process::libraries() const {
  std::set<std::string> found;
  std::ifstream file(fmt::format("/proc/{}/maps", id_));
  for (std::string line; std::getline(file, line);) {
    if (const auto path = line.find('/');
        path != std::string::npos && line.find(".so", path) != std::string::npos) {
      found.insert(line.substr(path));
    }
  }
  return static_cast<std::int64_t>(found.size());
}

std::int64_t Process::statusEntry(const std::string& name) const {
  return numbersOf(fmt::format("/proc/{}/status", id_))[name];
}

}  // namespace wrixel2::bench
