#include "companion/OfonoCallSource.h"

#include <algorithm>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusMessage;

constexpr const char* kService = "org.ofono";
constexpr const char* kManager = "org.ofono.Manager";
constexpr const char* kModem = "org.ofono.Modem";
constexpr const char* kCallManager = "org.ofono.VoiceCallManager";
constexpr const char* kCall = "org.ofono.VoiceCall";
/// What it has for the number of who does not want to be known.
constexpr const char* kWithheld = "withheld";

bool hasCalls(const Value* interfaces) {
  return interfaces != nullptr && interfaces->array() != nullptr &&
         std::ranges::find(*interfaces->array(), Value(kCallManager)) != interfaces->array()->end();
}

/// The calls' paths begin with their modem's and this.
std::string prefixOf(std::string_view modem) { return std::string(modem) + "/"; }

}  // namespace

OfonoCallSource::OfonoCallSource(platform::linux::BusConnection& systemBus, platform::Log& log)
    : BusCallSource(systemBus, log, kService) {
  service().onSignal(kCallManager, "CallAdded", "oa{sv}",
                     [this](const BusMessage&, const Array& arguments) {
                       update(*arguments[0].text(), *arguments[1].dictionary());
                     });
  service().onSignal(
      kCallManager, "CallRemoved", "o",
      [this](const BusMessage&, const Array& arguments) { forget(*arguments[0].text()); });
  service().onSignal(kCall, "PropertyChanged", "sv",
                     [this](const BusMessage& message, const Array& arguments) {
                       // One that is not known yet is in the answer that is under way.
                       if (const std::string path(message.path()); knows(path)) {
                         update(path, {{*arguments[0].text(), arguments[1]}});
                       }
                     });
  // A modem that is switched off takes its calls along.
  service().onSignal(
      kModem, "PropertyChanged", "sv",
      [this](const BusMessage& message, const Array& arguments) {
        if (!hasCalls(&arguments[1])) {
          forgetAll(prefixOf(message.path()));
        }
      },
      ",arg0='Interfaces'");
  service().onSignal(kManager, "ModemRemoved", "o",
                     [this](const BusMessage&, const Array& arguments) {
                       forgetAll(prefixOf(*arguments[0].text()));
                     });
  start();
}

void OfonoCallSource::askForCalls() {
  service().ask("/", kManager, "GetModems", {}, {}, "a(oa{sv})",
                [this](const BusMessage&, const Array& answer) {
                  for (const Value& modem : *answer.front().array()) {
                    const Array& entry = *modem.array();
                    if (hasCalls(platform::find(*entry[1].dictionary(), "Interfaces"))) {
                      askModem(*entry[0].text());
                    }
                  }
                });
}

void OfonoCallSource::askModem(const std::string& modem) {
  service().ask(modem, kCallManager, "GetCalls", {}, {}, "a(oa{sv})",
                [this](const BusMessage&, const Array& answer) {
                  for (const Value& call : *answer.front().array()) {
                    update(*(*call.array())[0].text(), *(*call.array())[1].dictionary());
                  }
                });
}

std::optional<RingingCall> OfonoCallSource::ringingCall(const Dictionary& properties) const {
  const auto state = platform::textForKey(properties, "State");
  if (state != "incoming" && state != "waiting") {
    return std::nullopt;
  }
  const auto number = platform::textForKey(properties, "LineIdentification").value_or("");
  return RingingCall{number == kWithheld ? "" : number,
                     platform::textForKey(properties, "Name").value_or("")};
}

void OfonoCallSource::hangUp(const std::string& call) {
  service().tell(call, kCall, "Hangup", logger(), "The call is not rejected");
}

}  // namespace wrixel2::companion
