#include "companion/Spawn.h"

#include <csignal>

#include <fcntl.h>
#include <spawn.h>
#include <unistd.h>

#include "platform/linux/ArgumentPointers.h"

namespace wrixel2::companion {

namespace {

/// What every child starts with.
class Spawn {
 public:
  explicit Spawn(int flags = 0) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    // The loop has signals blocked that are to end a child as usual.
    sigset_t signals;
    ::sigemptyset(&signals);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::posix_spawnattr_setflags(
        &attributes_, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | flags));
  }
  Spawn(const Spawn&) = delete;
  Spawn& operator=(const Spawn&) = delete;
  ~Spawn() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&actions_);
  }

  void throwAway(int file) {
    ::posix_spawn_file_actions_addopen(&actions_, file, "/dev/null", O_WRONLY, 0);
  }
  void setOutput(int descriptor) {
    ::posix_spawn_file_actions_adddup2(&actions_, descriptor, STDOUT_FILENO);
  }

  platform::Result<pid_t> run(std::vector<std::string> command) {
#ifdef __GLIBC__
    // Elsewhere it has to do that every descriptor of ours is closed on exec.
    ::posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
#endif
    pid_t process = -1;
    const int failure = ::posix_spawnp(&process, command.front().c_str(), &actions_, &attributes_,
                                       platform::linux::argumentPointers(command).data(), environ);
    if (failure != 0) {
      return platform::errorFromErrno(failure, "cannot run " + command.front());
    }
    return process;
  }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

platform::Result<pid_t> spawnWithOutput(const std::vector<std::string>& command, int output) {
  Spawn spawn;
  spawn.setOutput(output);
  spawn.throwAway(STDERR_FILENO);
  return spawn.run(command);
}

platform::Result<pid_t> spawnDetached(const std::vector<std::string>& command) {
  Spawn spawn(POSIX_SPAWN_SETSID);
  spawn.throwAway(STDOUT_FILENO);
  return spawn.run(command);
}

}  // namespace wrixel2::companion
