#include "companion/GnomeCallsSource.h"

#include <algorithm>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusMessage;

constexpr const char* kService = "org.gnome.Calls";
constexpr const char* kRoot = "/org/gnome/Calls";
constexpr const char* kCall = "org.gnome.Calls.Call";
constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";

/// Values of its property State.
constexpr std::int32_t kIncoming = 5;
constexpr std::int32_t kWaiting = 6;

}  // namespace

GnomeCallsSource::GnomeCallsSource(platform::linux::BusConnection& sessionBus, platform::Log& log)
    : BusCallSource(sessionBus, log, kService) {
  service().onSignal(kObjectManager, "InterfacesAdded", "oa{sa{sv}}",
                     [this](const BusMessage&, const Array& arguments) {
                       objectAdded(*arguments[0].text(), arguments[1]);
                     });
  service().onSignal(
      kObjectManager, "InterfacesRemoved", "oas",
      [this](const BusMessage&, const Array& arguments) {
        const Array& interfaces = *arguments[1].array();
        if (std::ranges::find(interfaces, platform::Value(kCall)) != interfaces.end()) {
          forget(*arguments[0].text());
        }
      });
  service().onSignal(
      "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
      [this](const BusMessage& message, const Array& arguments) {
        // One that is not known yet is in the answer that is under way.
        if (const std::string path(message.path()); knows(path)) {
          update(path, *arguments[1].dictionary());
        }
      },
      ",arg0='org.gnome.Calls.Call'");
  start();
}

void GnomeCallsSource::askForCalls() {
  service().ask(kRoot, kObjectManager, "GetManagedObjects", {}, {}, "a{oa{sa{sv}}}",
                [this](const BusMessage&, const Array& answer) {
                  for (const auto& [path, interfaces] : *answer.front().dictionary()) {
                    objectAdded(path, interfaces);
                  }
                });
}

void GnomeCallsSource::objectAdded(const std::string& path, const platform::Value& interfaces) {
  const auto* call = platform::find(*interfaces.dictionary(), kCall);
  if (call != nullptr) {
    update(path, *call->dictionary());
  }
}

std::optional<RingingCall> GnomeCallsSource::ringingCall(const Dictionary& properties) const {
  const auto state = platform::intForKey(properties, "State");
  const auto* inbound = platform::find(properties, "Inbound");
  if ((state != kIncoming && state != kWaiting) || (inbound != nullptr && !inbound->boolValue())) {
    return std::nullopt;
  }
  return RingingCall{platform::textForKey(properties, "Id").value_or(""),
                     platform::textForKey(properties, "DisplayName").value_or("")};
}

void GnomeCallsSource::silence(const std::string& call) {
  service().tell(call, kCall, "Silence", logger(), "The phone's own ringing goes on");
}

void GnomeCallsSource::hangUp(const std::string& call) {
  service().tell(call, kCall, "Hangup", logger(), "The call is not rejected");
}

}  // namespace wrixel2::companion
