#pragma once

#include <memory>
#include <string>
#include <vector>

#include <sys/types.h>
#include <systemd/sd-event.h>

#include "platform/Result.h"
#include "platform/RunLoop.h"
#include "platform/UniqueFunction.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}

namespace wrixel2::companion {

/// A program that runs for a short while without a shell, and what it prints.
///
/// It ends when it closes its standard output, and at the latest when its time is over or it has
/// printed too much: it is then killed. Destroying this kills it as well, without calling back.
class ProgramOutput {
 public:
  static constexpr platform::TimeInterval kTimeLimit = std::chrono::seconds(10);
  static constexpr std::size_t kMostOutput = std::size_t{64} * 1024;

  struct Outcome {
    int status = 0;      ///< the exit status, or 128 and the signal that ended it
    std::string output;  ///< of standard output; that of standard error is thrown away
  };
  using Finished = platform::UniqueFunction<void(const Outcome& outcome)>;

  /// The program is looked for on the PATH. Calls back once, in a later turn; the callback may
  /// destroy the process. Fails with errno's number where it cannot be started (ENOENT: there is no
  /// such program).
  static platform::Result<std::unique_ptr<ProgramOutput>> start(
      platform::linux::LinuxRunLoop& loop, const std::vector<std::string>& arguments,
      Finished finished);

  ProgramOutput(const ProgramOutput&) = delete;
  ProgramOutput& operator=(const ProgramOutput&) = delete;
  ~ProgramOutput();

 private:
  struct Unref {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  };

  explicit ProgramOutput(Finished finished) : finished_(std::move(finished)) {}

  static int onReadable(sd_event_source* source, int file, std::uint32_t events, void* userdata);
  platform::ErrorOrNone spawn(const std::vector<std::string>& arguments);
  platform::ErrorOrNone listen(platform::linux::LinuxRunLoop& loop);
  void read();
  void finish();
  int reap();

  Finished finished_;
  pid_t process_ = -1;
  platform::linux::FileDescriptor output_;
  std::unique_ptr<sd_event_source, Unref> source_;
  std::unique_ptr<platform::Timer> timeLimit_;
  std::string text_;
};

}  // namespace wrixel2::companion
