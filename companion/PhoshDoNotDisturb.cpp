#include "companion/PhoshDoNotDisturb.h"

#include <algorithm>
#include <utility>

namespace wrixel2::companion {

PhoshDoNotDisturb::PhoshDoNotDisturb(platform::linux::BusConnection& bus)
    : watch_(bus, {"org.sigxcpu.Feedback", "/org/sigxcpu/Feedback", "org.sigxcpu.Feedback"},
             [this](const platform::linux::PropertyWatch::Properties& properties) {
               profile_ = properties ? platform::textForKey(*properties, "Profile") : std::nullopt;
               update();
             }) {}

void PhoshDoNotDisturb::setSilentProfiles(std::vector<std::string> profiles) {
  silentProfiles_ = std::move(profiles);
  update();
}

void PhoshDoNotDisturb::update() {
  setActive(profile_ && std::find(silentProfiles_.begin(), silentProfiles_.end(), *profile_) !=
                            silentProfiles_.end());
}

}  // namespace wrixel2::companion
