#include "tests/platform/linux/FakeNotificationService.h"

#include <utility>

namespace wrixel2::platform::linux {

Result<BusSlot> serveNotifications(const BusConnection& bus,
                                   std::function<int(const Array& arguments)> notified) {
  const auto notify = [notified = std::move(notified)](const BusMessage& call) {
    if (const auto arguments = call.arguments()) {
      call.reply("u", {notified(*arguments)});
    }
  };
  BusInterface service;
  service.name = kNotificationService.interface;
  service.methods = {{"Notify",
                      {{"app", "s"},
                       {"replaces", "u"},
                       {"icon", "s"},
                       {"summary", "s"},
                       {"body", "s"},
                       {"actions", "as"},
                       {"hints", "a{sv}"},
                       {"timeout", "i"}},
                      {{"id", "u"}},
                      notify}};
  auto slot = bus.addInterface(kNotificationService.path, std::move(service));
  if (slot) {
    if (const auto error = bus.requestName(kNotificationService.destination)) {
      return *error;
    }
  }
  return slot;
}

}  // namespace wrixel2::platform::linux
