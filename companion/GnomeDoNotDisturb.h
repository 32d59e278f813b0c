#pragma once

#include <memory>
#include <string>
#include <vector>

#include "companion/DoNotDisturbSource.h"
#include "companion/ProgramOutput.h"
#include "platform/Log.h"
#include "platform/linux/BusService.h"

namespace wrixel2::companion {

/// GNOME's switch for notification banners ("show-banners" of org.gnome.desktop.notifications),
/// which its shells show as Do Not Disturb.
///
/// That the value has changed is learnt from dconf's own signal; what it is now, from the program
/// gsettings, so that the schema's default and an administrator's lock hold. A phone without either
/// says nothing.
class GnomeDoNotDisturb final : public DoNotDisturbSource {
 public:
  /// Loop, bus and log outlive it. `gsettings` is the program to ask.
  GnomeDoNotDisturb(platform::linux::LinuxRunLoop& loop, platform::linux::BusConnection& bus,
                    platform::Log& log, std::string gsettings = "gsettings");

 private:
  void ask();
  void answered(const ProgramOutput::Outcome& outcome);

  platform::linux::LinuxRunLoop& loop_;
  platform::Logger logger_;
  std::string gsettings_;
  platform::linux::BusService dconf_;
  std::unique_ptr<ProgramOutput> question_;
  bool isToBeAskedAgain_ = false;
};

}  // namespace wrixel2::companion
