#include "companion/ModemManagerCallSource.h"

#include <algorithm>
#include <vector>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusMessage;

constexpr const char* kService = "org.freedesktop.ModemManager1";
constexpr const char* kRoot = "/org/freedesktop/ModemManager1";
constexpr const char* kVoice = "org.freedesktop.ModemManager1.Modem.Voice";
constexpr const char* kCall = "org.freedesktop.ModemManager1.Call";
constexpr const char* kObjectManager = "org.freedesktop.DBus.ObjectManager";
constexpr const char* kProperties = "org.freedesktop.DBus.Properties";

/// MMCallState and MMCallDirection.
constexpr std::int32_t kRingingIn = 3;
constexpr std::int32_t kWaiting = 6;
constexpr std::int32_t kOutgoing = 2;

}  // namespace

ModemManagerCallSource::ModemManagerCallSource(platform::linux::BusConnection& systemBus,
                                               platform::Log& log)
    : BusCallSource(systemBus, log, kService) {
  service().onSignal(kVoice, "CallAdded", "o",
                     [this](const BusMessage& message, const Array& arguments) {
                       callAdded(std::string(message.path()), *arguments[0].text());
                     });
  service().onSignal(kVoice, "CallDeleted", "o", [this](const BusMessage&, const Array& arguments) {
    callDeleted(*arguments[0].text());
  });
  // What is not known yet is in the answer that is under way.
  service().onSignal(kCall, "StateChanged", "iiu",
                     [this](const BusMessage& message, const Array& arguments) {
                       if (const std::string path(message.path()); knows(path)) {
                         update(path, {{"State", arguments[1]}});
                       }
                     });
  service().onSignal(
      kProperties, "PropertiesChanged", "sa{sv}as",
      [this](const BusMessage& message, const Array& arguments) {
        if (const std::string path(message.path()); knows(path)) {
          update(path, *arguments[1].dictionary());
        }
      },
      ",arg0='org.freedesktop.ModemManager1.Call'");
  service().onSignal(kObjectManager, "InterfacesAdded", "oa{sa{sv}}",
                     [this](const BusMessage&, const Array& arguments) {
                       modemAdded(*arguments[0].text(), arguments[1]);
                     });
  service().onSignal(
      kObjectManager, "InterfacesRemoved", "oas",
      [this](const BusMessage&, const Array& arguments) {
        const Array& interfaces = *arguments[1].array();
        if (std::ranges::find(interfaces, platform::Value(kVoice)) != interfaces.end()) {
          modemRemoved(*arguments[0].text());
        }
      });
  start();
}

void ModemManagerCallSource::askForCalls() {
  modems_.clear();
  service().ask(kRoot, kObjectManager, "GetManagedObjects", {}, {}, "a{oa{sa{sv}}}",
                [this](const BusMessage&, const Array& answer) {
                  for (const auto& [path, interfaces] : *answer.front().dictionary()) {
                    modemAdded(path, interfaces);
                  }
                });
}

void ModemManagerCallSource::modemAdded(const std::string& modem,
                                        const platform::Value& interfaces) {
  const auto* voice = platform::find(*interfaces.dictionary(), kVoice);
  const auto* calls = voice == nullptr ? nullptr : platform::find(*voice->dictionary(), "Calls");
  if (calls == nullptr || calls->array() == nullptr) {
    return;
  }
  for (const platform::Value& call : *calls->array()) {
    if (call.text() != nullptr) {
      callAdded(modem, *call.text());
    }
  }
}

void ModemManagerCallSource::modemRemoved(const std::string& modem) {
  std::vector<std::string> calls;
  for (const auto& [call, itsModem] : modems_) {
    if (itsModem == modem) {
      calls.push_back(call);
    }
  }
  for (const std::string& call : calls) {
    callDeleted(call);
  }
}

void ModemManagerCallSource::callAdded(const std::string& modem, const std::string& call) {
  modems_.insert_or_assign(call, modem);
  service().ask(call, kProperties, "GetAll", "s", {kCall}, "a{sv}",
                [this, call](const BusMessage&, const Array& answer) {
                  if (modems_.contains(call)) {
                    update(call, *answer.front().dictionary());
                  }
                });
}

void ModemManagerCallSource::callDeleted(const std::string& call) {
  modems_.erase(call);
  forget(call);
}

std::optional<RingingCall> ModemManagerCallSource::ringingCall(const Dictionary& properties) const {
  const auto state = platform::intForKey(properties, "State");
  if ((state != kRingingIn && state != kWaiting) ||
      platform::intForKey(properties, "Direction") == kOutgoing) {
    return std::nullopt;
  }
  return RingingCall{platform::textForKey(properties, "Number").value_or(""), {}};
}

void ModemManagerCallSource::hangUp(const std::string& call) {
  service().tell(call, kCall, "Hangup", logger(), "The call is not rejected");
}

}  // namespace wrixel2::companion
