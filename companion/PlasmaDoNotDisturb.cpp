#include "companion/PlasmaDoNotDisturb.h"

namespace wrixel2::companion {

PlasmaDoNotDisturb::PlasmaDoNotDisturb(platform::linux::BusConnection& bus)
    : watch_(PropertyWatch::start(
          bus,
          {"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
           "org.freedesktop.Notifications"},
          [this](const PropertyWatch::Properties& properties) {
            setActive(properties && platform::boolForKey(*properties, "Inhibited"));
          })) {}

}  // namespace wrixel2::companion
