#include "companion/ChildProcesses.h"

#include <utility>

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/Error.h"
#include "platform/linux/LinuxRunLoop.h"

extern char** environ;

namespace wrixel2::companion {

namespace {

/// What a child starts with.
class SpawnSettings {
 public:
  SpawnSettings() {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
#ifdef __GLIBC__
    // Elsewhere it has to do that every descriptor of ours is closed on exec.
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
    ::posix_spawnattr_init(&attributes_);
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(
        &attributes_,
        static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSID));
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

ChildProcesses::ChildProcesses(platform::linux::LinuxRunLoop& loop, platform::Log& log)
    : event_(loop.event()), logger_(log, "ChildProcesses") {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void ChildProcesses::run(const std::vector<std::string>& command, std::string_view setting) {
  if (command.empty()) {
    return;
  }
  std::vector<std::string> texts = command;
  std::vector<char*> arguments;
  for (std::string& text : texts) {
    arguments.push_back(text.data());
  }
  arguments.push_back(nullptr);
  const SpawnSettings spawnSettings;
  pid_t process = -1;
  if (const int error = ::posix_spawnp(&process, arguments.front(), spawnSettings.actions(),
                                       spawnSettings.attributes(), arguments.data(), environ);
      error != 0) {
    logger_.error(platform::errorFromErrno(
                      error, fmt::format("{} of {} cannot be started", command.front(), setting))
                      .localizedDescription);
    return;
  }
  sd_event_source* source = nullptr;
  if (const int result =
          sd_event_add_child(event_, &source, process, WEXITED, &ChildProcesses::onEnd, this);
      result < 0) {
    logger_.warning(
        platform::errorFromErrno(
            -result, fmt::format("The end of {} of {} is not noticed", command.front(), setting))
            .localizedDescription);
    return;
  }
  Child& child = children_[process];
  child.name = fmt::format("{} of {}", command.front(), setting);
  child.source.reset(source);
}

int ChildProcesses::onEnd(sd_event_source* /*source*/, const siginfo_t* info, void* userdata) {
  static_cast<ChildProcesses*>(userdata)->ended(*info);
  return 0;
}

void ChildProcesses::ended(const siginfo_t& info) {
  // sd-event waits for the process after this; its source lives that long.
  const auto child = children_.extract(info.si_pid);
  if (child.empty()) {
    return;
  }
  if (info.si_code != CLD_EXITED) {
    logger_.warning(fmt::format("{} was ended by signal {}", child.mapped().name, info.si_status));
  } else if (info.si_status != 0) {
    logger_.warning(fmt::format("{} failed with status {}", child.mapped().name, info.si_status));
  }
}

}  // namespace wrixel2::companion
