#include "companion/DetachedCommands.h"

#include <utility>

#include <fmt/format.h>
#include <sys/wait.h>

#include "companion/Spawn.h"
#include "platform/Error.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

DetachedCommands::DetachedCommands(platform::linux::LinuxRunLoop& loop, platform::Log& log)
    : event_(loop.event()), logger_(log, "DetachedCommands") {
  sigset_t signals;
  ::sigemptyset(&signals);
  ::sigaddset(&signals, SIGCHLD);
  ::sigprocmask(SIG_BLOCK, &signals, nullptr);
}

void DetachedCommands::run(const std::vector<std::string>& command, std::string_view setting) {
  if (command.empty()) {
    return;
  }
  isDropLogged_ = isDropLogged_ && !children_.empty();
  if (children_.size() >= kMostRunning) {
    if (!std::exchange(isDropLogged_, true)) {
      logger_.warning(fmt::format("{} of {} is not started: {} commands run already",
                                  command.front(), setting, kMostRunning));
    }
    return;
  }
  const auto process = spawnDetached(command);
  if (!process) {
    logger_.error(platform::errorFromErrno(
                      static_cast<int>(process.error().code),
                      fmt::format("{} of {} cannot be started", command.front(), setting))
                      .localizedDescription);
    return;
  }
  sd_event_source* source = nullptr;
  if (const int result =
          sd_event_add_child(event_, &source, *process, WEXITED, &DetachedCommands::onEnd, this);
      result < 0) {
    logger_.warning(
        platform::errorFromErrno(
            -result, fmt::format("The end of {} of {} is not noticed", command.front(), setting))
            .localizedDescription);
    return;
  }
  Child& child = children_[*process];
  child.name = fmt::format("{} of {}", command.front(), setting);
  child.source.reset(source);
}

int DetachedCommands::onEnd(sd_event_source* /*source*/, const siginfo_t* info, void* userdata) {
  static_cast<DetachedCommands*>(userdata)->ended(*info);
  return 0;
}

void DetachedCommands::ended(const siginfo_t& info) {
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
