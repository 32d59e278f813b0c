#include "companion/ScreenSaverLock.h"

#include <utility>

namespace wrixel2::companion {

using platform::Array;
using platform::linux::BusMessage;

ScreenSaverLock::ScreenSaverLock(platform::linux::BusConnection& bus, const std::string& service,
                                 std::vector<std::string> paths)
    : interface_(service), paths_(std::move(paths)), service_(bus, service) {
  service_.onSignal(
      interface_, "ActiveChanged", "b",
      [this](const BusMessage&, const Array& arguments) { say(arguments[0].boolValue()); });
  service_.start([this](bool isThere) {
    if (isThere) {
      ask(0);
    } else {
      say(std::nullopt);
    }
  });
}

void ScreenSaverLock::ask(std::size_t pathIndex) {
  if (pathIndex == paths_.size()) {
    say(std::nullopt);
    return;
  }
  service_.ask(
      paths_[pathIndex], interface_, "GetActive", {}, {}, "b",
      [this](const BusMessage&, const Array& answer) { say(answer[0].boolValue()); },
      [this, pathIndex] { ask(pathIndex + 1); });
}

}  // namespace wrixel2::companion
