#include "companion/ChildProcess.h"

#include <array>
#include <csignal>
#include <utility>

#include <errno.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

constexpr int kSignalBase = 128;

/// What a child starts with: nothing of ours but standard output's other end.
class SpawnSettings {
 public:
  explicit SpawnSettings(int output) {
    ::posix_spawn_file_actions_init(&actions_);
    ::posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    ::posix_spawn_file_actions_adddup2(&actions_, output, STDOUT_FILENO);
    ::posix_spawn_file_actions_addopen(&actions_, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    // The loop has signals blocked that are to end a child as usual.
    sigset_t none;
    ::sigemptyset(&none);
    ::posix_spawnattr_init(&attributes_);
    ::posix_spawnattr_setsigmask(&attributes_, &none);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
  }
  SpawnSettings(const SpawnSettings&) = delete;
  SpawnSettings& operator=(const SpawnSettings&) = delete;
  ~SpawnSettings() {
    ::posix_spawn_file_actions_destroy(&actions_);
    ::posix_spawnattr_destroy(&attributes_);
  }

  const posix_spawn_file_actions_t* actions() const { return &actions_; }
  const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
  posix_spawn_file_actions_t actions_{};
  posix_spawnattr_t attributes_{};
};

}  // namespace

platform::Result<std::unique_ptr<ChildProcess>> ChildProcess::start(
    platform::linux::LinuxRunLoop& loop, std::vector<std::string> arguments, Finished finished) {
  std::unique_ptr<ChildProcess> process(new ChildProcess(std::move(finished)));
  if (auto error = process->spawn(std::move(arguments))) {
    return *error;
  }
  if (auto error = process->listen(loop)) {
    return *error;
  }
  return process;
}

ChildProcess::~ChildProcess() {
  source_.reset();
  reap();
}

platform::ErrorOrNone ChildProcess::spawn(std::vector<std::string> arguments) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    return platform::errorFromErrno(errno, "no pipe for " + arguments.front());
  }
  output_ = platform::linux::FileDescriptor(ends[0]);
  const platform::linux::FileDescriptor writingEnd(ends[1]);
  // For the reader alone: most programs do not know how to write to one that does not wait.
  ::fcntl(writingEnd.get(), F_SETFL, 0);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  const SpawnSettings settings(writingEnd.get());
  pid_t process = -1;
  const int failure = ::posix_spawnp(&process, pointers.front(), settings.actions(),
                                     settings.attributes(), pointers.data(), environ);
  if (failure != 0) {
    return platform::errorFromErrno(failure, "cannot run " + arguments.front());
  }
  process_ = process;
  return std::nullopt;
}

platform::ErrorOrNone ChildProcess::listen(platform::linux::LinuxRunLoop& loop) {
  sd_event_source* source = nullptr;
  const int result =
      sd_event_add_io(loop.event(), &source, output_.get(), EPOLLIN, onReadable, this);
  if (result < 0) {
    return platform::errorFromErrno(-result, "a program's output cannot be waited for");
  }
  source_.reset(source);
  timeLimit_ = loop.scheduledTimer(kTimeLimit, false, [this] { finish(); });
  return std::nullopt;
}

int ChildProcess::onReadable(sd_event_source* /*source*/, int /*file*/, std::uint32_t /*events*/,
                             void* userdata) {
  static_cast<ChildProcess*>(userdata)->read();
  return 0;
}

void ChildProcess::read() {
  std::array<char, 4096> buffer;
  const ssize_t count = ::read(output_.get(), buffer.data(), buffer.size());
  if (count > 0) {
    text_.append(buffer.data(), static_cast<std::size_t>(count));
  }
  const bool isLater = count < 0 && (errno == EAGAIN || errno == EINTR);
  if ((count <= 0 && !isLater) || text_.size() > kMostOutput) {
    finish();
  }
}

void ChildProcess::finish() {
  source_.reset();
  timeLimit_.reset();
  const Outcome outcome{reap(), std::move(text_)};
  const Finished finished = std::move(finished_);
  finished(outcome);
}

int ChildProcess::reap() {
  if (process_ <= 0) {
    return 0;
  }
  // One that has closed its output has nothing more to do here; the status of one that is just
  // ending by itself stays what it is. So the wait is short.
  const pid_t process = std::exchange(process_, -1);
  int status = 0;
  ::kill(process, SIGKILL);
  while (::waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalBase + WTERMSIG(status);
}

}  // namespace wrixel2::companion
