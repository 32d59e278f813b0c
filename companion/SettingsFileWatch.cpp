#include "companion/SettingsFileWatch.h"

#include <cstdint>
#include <filesystem>
#include <utility>

#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::companion {

namespace {

std::string nameOf(const std::string& path) { return std::filesystem::path(path).filename(); }
std::string parentOf(const std::string& path) { return std::filesystem::path(path).parent_path(); }

bool isNamed(const inotify_event& event, const std::string& name) {
  return event.len > 0 && name == event.name;
}

/// Each of them leaves the file complete, or leaves none.
constexpr std::uint32_t kChanges = IN_CLOSE_WRITE | IN_MOVED_TO | IN_DELETE | IN_MOVED_FROM;

bool isOverflow(const inotify_event& event) { return (event.mask & IN_Q_OVERFLOW) != 0; }

}  // namespace

SettingsFileWatch::SettingsFileWatch(sd_event* event, const std::string& path,
                                     std::function<void()> changed)
    : event_(event), path_(path), directory_(parentOf(path)), changed_(std::move(changed)) {}

platform::Result<std::unique_ptr<SettingsFileWatch>> SettingsFileWatch::start(
    platform::linux::LinuxRunLoop& loop, const std::string& path, std::function<void()> changed) {
  std::unique_ptr<SettingsFileWatch> watch(
      new SettingsFileWatch(loop.event(), path, std::move(changed)));
  if (auto error = watch->watchDirectory()) {
    return *error;
  }
  if (auto error = watch->watchParent()) {
    return *error;
  }
  return watch;
}

platform::ErrorOrNone SettingsFileWatch::watchDirectory() {
  sd_event_source* source = nullptr;
  const int result = sd_event_add_inotify(event_, &source, directory_.c_str(),
                                          kChanges | IN_CREATE | IN_ONLYDIR, onDirectory, this);
  if (result < 0) {
    return platform::errorFromErrno(-result, "cannot watch " + directory_);
  }
  directorySource_.reset(source);
  return std::nullopt;
}

platform::ErrorOrNone SettingsFileWatch::watchParent() {
  const std::string parent = parentOf(directory_);
  sd_event_source* source = nullptr;
  const int result = sd_event_add_inotify(event_, &source, parent.c_str(),
                                          IN_MOVED_TO | IN_CREATE | IN_ONLYDIR, onParent, this);
  if (result < 0) {
    return platform::errorFromErrno(-result, "cannot watch " + parent);
  }
  parentSource_.reset(source);
  return std::nullopt;
}

bool SettingsFileWatch::isChanged(const inotify_event& event) const {
  if (isOverflow(event)) {
    return true;
  }
  if (!isNamed(event, nameOf(path_))) {
    return false;
  }
  // A new file is still empty, and is reported when it is closed; a new link is complete.
  std::error_code ignored;
  return (event.mask & kChanges) != 0 || std::filesystem::is_symlink(path_, ignored) ||
         std::filesystem::hard_link_count(path_, ignored) > 1;
}

int SettingsFileWatch::onDirectory(sd_event_source* /*source*/, const inotify_event* event,
                                   void* userdata) {
  auto* self = static_cast<SettingsFileWatch*>(userdata);
  if (self->isChanged(*event)) {
    self->changed_();
  }
  return 0;
}

int SettingsFileWatch::onParent(sd_event_source* /*source*/, const inotify_event* event,
                                void* userdata) {
  auto* self = static_cast<SettingsFileWatch*>(userdata);
  // Failing, it is something else that got the directory's name: there is nothing to read in it.
  if ((isOverflow(*event) || isNamed(*event, nameOf(self->directory_))) &&
      !self->watchDirectory()) {
    self->changed_();
  }
  return 0;
}

}  // namespace wrixel2::companion
