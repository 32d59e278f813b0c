#include "companion/GnomeDoNotDisturb.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <errno.h>
#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Array;

constexpr std::string_view kKey = "/org/gnome/desktop/notifications/show-banners";

/// Whether dconf's Notify (a prefix, the paths below it, a tag) speaks of the key, by itself or as
/// part of a folder, which ends with a slash.
bool isAboutKey(const Array& arguments) {
  const std::string& prefix = *arguments[0].text();
  const Array& changes = *arguments[1].array();
  return std::any_of(changes.begin(), changes.end(), [&prefix](const platform::Value& change) {
    const std::string path = prefix + *change.text();
    return path == kKey || (path.ends_with('/') && kKey.starts_with(path));
  });
}

}  // namespace

GnomeDoNotDisturb::GnomeDoNotDisturb(platform::linux::LinuxRunLoop& loop,
                                     platform::linux::BusConnection& bus, platform::Log& log,
                                     std::string gsettings)
    : loop_(loop),
      logger_(log, "GnomeDoNotDisturb"),
      gsettings_(std::move(gsettings)),
      dconf_(bus, "ca.desrt.dconf") {
  dconf_.onSignal(
      "ca.desrt.dconf.Writer", "Notify", "sass",
      [this](const platform::linux::BusMessage&, const Array& arguments) {
        if (isAboutKey(arguments)) {
          ask();
        }
      },
      ",path='/ca/desrt/dconf/Writer/user'");
  // Changes before it is known who dconf is go unseen.
  dconf_.start([this](bool) { ask(); });
}

void GnomeDoNotDisturb::ask() {
  // An answer that is on its way may be from before the change.
  if (question_) {
    isToBeAskedAgain_ = true;
    return;
  }
  auto started = ProgramOutput::start(
      loop_, {gsettings_, "get", "org.gnome.desktop.notifications", "show-banners"},
      [this](const ProgramOutput::Outcome& outcome) { answered(outcome); });
  if (started) {
    question_ = std::move(*started);
  } else if (started.error().code != ENOENT) {
    logger_.warning(description(started.error()));
  }
}

void GnomeDoNotDisturb::answered(const ProgramOutput::Outcome& outcome) {
  const auto finished = std::move(question_);
  if (std::exchange(isToBeAskedAgain_, false)) {
    ask();
    return;
  }
  // Without the schema there is nobody whose switch this would be.
  setActive(outcome.status == 0 && outcome.output.starts_with("false"));
}

}  // namespace wrixel2::companion
