#include "bench/ServedBand.h"

#include <string>

namespace wrixel2::bench {
namespace {

using platform::linux::BusMessage;

/// Whether the daemon has announced that its band can be used.
bool saysInitialized(const BusMessage& message) {
  const auto arguments = message.arguments();
  return arguments && arguments->size() > 1 && (*arguments)[1].dictionary() != nullptr &&
         platform::boolForKey(*(*arguments)[1].dictionary(), "Initialized");
}

}  // namespace

ServedBand::ServedBand(platform::linux::LinuxRunLoop& loop, platform::Log& log,
                       const platform::TimeZone& zone, const Programs& programs, Place place)
    : session_(loop, log), band_(loop, log, zone) {
  session_.serveSettings({{"connectedMode", 1}});
  band_.band().setIsInRange(place == Place::inRange);
  bool isInitialized = false;
  const auto match = session_.bus().addMatch(
      "type='signal',interface='org.freedesktop.DBus.Properties',arg0='"
      "org.corvale.wrixel2d.Status'",
      [&isInitialized](const BusMessage& message) {
        isInitialized = isInitialized || saysInitialized(message);
      });
  daemon_ = session_.start({programs.daemon, "--band", "bluez", "--log", "stderr"},
                           std::string(kDaemonCenter), band_.address());
  session_.tell(centerAddress(kDaemonCenter), "letUsStart", {});
  if (place == Place::inRange) {
    session_.waitUntil("the band", [&isInitialized] { return isInitialized; });
  } else {
    session_.waitUntil("the scan", [this] { return band_.isScannedFor(); });
  }
}

}  // namespace wrixel2::bench
