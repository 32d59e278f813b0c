#include "companion/ProgramOutput.h"

#include <array>
#include <csignal>
#include <utility>

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <unistd.h>

#include "companion/Spawn.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

constexpr int kSignalBase = 128;

}  // namespace

platform::Result<std::unique_ptr<ProgramOutput>> ProgramOutput::start(
    platform::linux::LinuxRunLoop& loop, const std::vector<std::string>& arguments,
    Finished finished) {
  std::unique_ptr<ProgramOutput> process(new ProgramOutput(std::move(finished)));
  if (auto error = process->spawn(arguments)) {
    return *error;
  }
  if (auto error = process->listen(loop)) {
    return *error;
  }
  return process;
}

ProgramOutput::~ProgramOutput() {
  source_.reset();
  reap();
}

platform::ErrorOrNone ProgramOutput::spawn(const std::vector<std::string>& arguments) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) {
    return platform::errorFromErrno(errno, "no pipe for " + arguments.front());
  }
  output_ = platform::linux::FileDescriptor(ends[0]);
  const platform::linux::FileDescriptor writingEnd(ends[1]);
  // For the reader alone: most programs do not know how to write to one that does not wait.
  ::fcntl(writingEnd.get(), F_SETFL, 0);
  const auto process = spawnWithOutput(arguments, writingEnd.get());
  if (!process) {
    return process.error();
  }
  process_ = *process;
  return std::nullopt;
}

platform::ErrorOrNone ProgramOutput::listen(platform::linux::LinuxRunLoop& loop) {
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

int ProgramOutput::onReadable(sd_event_source* /*source*/, int /*file*/, std::uint32_t /*events*/,
                              void* userdata) {
  static_cast<ProgramOutput*>(userdata)->read();
  return 0;
}

void ProgramOutput::read() {
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

void ProgramOutput::finish() {
  source_.reset();
  timeLimit_.reset();
  const Outcome outcome{reap(), std::move(text_)};
  const Finished finished = std::move(finished_);
  finished(outcome);
}

int ProgramOutput::reap() {
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
