#include "platform/linux/SocketWatch.h"

#include <filesystem>
#include <system_error>
#include <utility>

#include <sys/inotify.h>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {

// A bus daemon makes its socket, begins to listen, and then changes the file's mode: the last is
// when connecting succeeds.
constexpr std::uint32_t kEvents =
    IN_CREATE | IN_MOVED_TO | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

SocketWatch::SocketWatch(LinuxRunLoop& loop, std::string socketPath, Task callback)
    : loop_(loop), socketPath_(std::move(socketPath)), callback_(std::move(callback)) {
  watch();
}

SocketWatch::~SocketWatch() { sd_event_source_disable_unref(source_); }

void SocketWatch::watch() {
  namespace fs = std::filesystem;
  source_ = sd_event_source_disable_unref(source_);
  // From the socket's directory up; a directory may come to be, or go, between look and watch.
  for (fs::path path = socketPath_; path.has_relative_path(); path = path.parent_path()) {
    const auto directory = path.parent_path();
    nextPart_ = path.filename();
    if (sd_event_add_inotify(loop_.event(), &source_, directory.c_str(), kEvents, onEvent, this) >=
        0) {
      return;
    }
  }
}

int SocketWatch::onEvent(sd_event_source* /*source*/, const struct inotify_event* event,
                         void* userdata) {
  const bool isOfDirectory = (event->mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0;
  static_cast<SocketWatch*>(userdata)->changed(isOfDirectory || event->len == 0 ? nullptr
                                                                                : event->name);
  return 0;
}

void SocketWatch::changed(const char* name) {
  if (name != nullptr && nextPart_ != name) {
    return;
  }
  watch();
  std::error_code error;
  if (std::filesystem::exists(socketPath_, error)) {
    callback_();
  }
}

}  // namespace wrixel2::platform::linux
