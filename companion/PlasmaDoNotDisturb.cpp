#include "companion/PlasmaDoNotDisturb.h"

namespace wrixel2::companion {

PlasmaDoNotDisturb::PlasmaDoNotDisturb(platform::linux::BusConnection& bus)
    : watch_(bus,
             {"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
              "org.freedesktop.Notifications"},
             [this](const platform::linux::PropertyWatch::Properties& properties) {
               setActive(properties && platform::boolForKey(*properties, "Inhibited"));
             }) {}

}  // namespace wrixel2::companion
