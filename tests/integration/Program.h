#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>
#include <systemd/sd-event.h>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::integration {

/// The directory with the programs to be tested in place of those of the test's own build: what
/// $WRIXEL2_PROGRAMS says, or null.
const char* otherPrograms();

/// A program that runs: what it prints is collected by the test's loop as it comes.
class Program {
 public:
  using Environment = std::map<std::string, std::string>;

  /// The environment replaces the test's own. Where the arguments name a program of the test's
  /// build it is the one of otherPrograms(), if there are others. Fails the test when there is no
  /// such program.
  Program(platform::linux::LinuxRunLoop& loop, const std::vector<std::string>& arguments,
          const Environment& environment);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  /// Kills it if it still runs.
  ~Program();

  void signal(int number) const;
  pid_t process() const { return process_; }

  const std::string& output() const { return output_.text; }
  const std::string& errors() const { return errors_.text; }
  bool hasLogged(const std::string& text) const {
    return errors_.text.find(text) != std::string::npos;
  }
  /// How often the text occurs in what it wrote to standard error.
  int timesLogged(const std::string& text) const;

  /// The exit status once it has ended, or 128 and the signal that ended it.
  std::optional<int> status();

 private:
  /// One of its two output pipes.
  struct Pipe {
    ~Pipe() { sd_event_source_unref(source); }
    platform::linux::FileDescriptor readingEnd;
    sd_event_source* source = nullptr;
    std::string text;
    bool isAtEnd = false;
  };

  void listen(Pipe& pipe, int descriptor);
  static int onReadable(sd_event_source* source, int descriptor, unsigned events, void* userdata);

  platform::linux::LinuxRunLoop& loop_;
  Pipe output_;
  Pipe errors_;
  pid_t process_ = -1;
  std::optional<int> status_;
};

}  // namespace wrixel2::integration
