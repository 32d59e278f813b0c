#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <signal.h>
#include <sys/types.h>
#include <systemd/sd-event.h>

#include "companion/CommandRunner.h"
#include "platform/Log.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}

namespace wrixel2::companion {

/// Programs as child processes, each in a session of its own: they outlive the companion.
///
/// A child has no input, its output goes nowhere but standard error, and it inherits the
/// environment and nothing else: no other descriptors, no blocked or ignored signals. No more than
/// kMostRunning run at a time.
class DetachedCommands final : public CommandRunner {
 public:
  static constexpr std::size_t kMostRunning = 16;

  /// Blocks SIGCHLD, as the loop wants it. Loop and log outlive it.
  DetachedCommands(platform::linux::LinuxRunLoop& loop, platform::Log& log);
  DetachedCommands(const DetachedCommands&) = delete;
  DetachedCommands& operator=(const DetachedCommands&) = delete;

  /// The log gets an error when the program cannot be started, and a warning when it fails. While
  /// too many run it is not started; that is a warning, one until all of them have ended.
  void run(const std::vector<std::string>& command, std::string_view setting) override;

  /// Those that have not ended.
  std::size_t running() const { return children_.size(); }

 private:
  struct Unref {
    void operator()(sd_event_source* source) const { sd_event_source_disable_unref(source); }
  };
  struct Child {
    std::string name;  ///< for the log
    std::unique_ptr<sd_event_source, Unref> source;
  };

  static int onEnd(sd_event_source* source, const siginfo_t* info, void* userdata);
  void ended(const siginfo_t& info);

  sd_event* event_;
  platform::Logger logger_;
  std::map<pid_t, Child> children_;
  bool isDropLogged_ = false;
};

}  // namespace wrixel2::companion
