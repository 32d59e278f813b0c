#pragma once

#include <functional>
#include <memory>
#include <string>

#include <sys/inotify.h>
#include <systemd/sd-event.h>

#include "platform/Result.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}

namespace wrixel2::companion {

/// Tells when a file has been written or removed, by inotify(7) on its directory: editors replace a
/// file rather than write into it. A directory that is itself replaced is followed.
///
/// A file is not reported while it is still being written: only its closing or its arrival counts.
class SettingsFileWatch {
 public:
  /// The path is absolute and its directory exists.
  static platform::Result<std::unique_ptr<SettingsFileWatch>> start(
      platform::linux::LinuxRunLoop& loop, const std::string& path, std::function<void()> changed);

 private:
  struct Unref {
    void operator()(sd_event_source* source) const { sd_event_source_unref(source); }
  };
  using Source = std::unique_ptr<sd_event_source, Unref>;

  SettingsFileWatch(sd_event* event, const std::string& path, std::function<void()> changed);

  static int onDirectory(sd_event_source* source, const inotify_event* event, void* userdata);
  static int onParent(sd_event_source* source, const inotify_event* event, void* userdata);

  platform::ErrorOrNone watchDirectory();
  platform::ErrorOrNone watchParent();
  bool isChanged(const inotify_event& event) const;

  sd_event* event_;
  std::string path_;
  std::string directory_;
  std::function<void()> changed_;
  Source directorySource_;
  Source parentSource_;
};

}  // namespace wrixel2::companion
