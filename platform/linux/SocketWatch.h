#pragma once

#include <string>

#include <systemd/sd-event.h>

#include "platform/RunLoop.h"

namespace wrixel2::platform::linux {

class LinuxRunLoop;

/// Tells whenever a socket file may have come to be, or to accept connections: by what the kernel
/// says of its directory, or of the nearest one that exists yet. Costs nothing while nothing
/// happens there.
class SocketWatch {
 public:
  /// The callback comes in a turn of the loop and may destroy the watch.
  SocketWatch(LinuxRunLoop& loop, std::string socketPath, Task callback);
  SocketWatch(const SocketWatch&) = delete;
  SocketWatch& operator=(const SocketWatch&) = delete;
  ~SocketWatch();

 private:
  static int onEvent(sd_event_source* source, const struct inotify_event* event, void* userdata);

  void watch();
  void changed(const char* name);

  LinuxRunLoop& loop_;
  std::string socketPath_;
  Task callback_;
  std::string nextPart_;  ///< what is awaited in the directory that is watched
  sd_event_source* source_ = nullptr;
};

}  // namespace wrixel2::platform::linux
