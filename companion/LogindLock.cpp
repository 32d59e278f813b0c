#include "companion/LogindLock.h"

#include <string_view>
#include <utility>

namespace wrixel2::companion {

using platform::linux::BusAddress;
using platform::linux::BusMessage;
using platform::linux::BusSlot;

namespace {

constexpr const char* kService = "org.freedesktop.login1";
const BusAddress kManager{kService, "/org/freedesktop/login1", "org.freedesktop.login1.Manager"};

/// The slot, or an empty one where the connection has ended.
BusSlot slotOf(platform::Result<BusSlot> made) { return made ? std::move(*made) : BusSlot(); }

/// Empty where there is no such session.
std::string pathOf(const BusMessage& reply) {
  const auto arguments = reply.arguments();
  return arguments && reply.signature() == "o" ? *(*arguments)[0].text() : std::string();
}

}  // namespace

void LogindLock::busFound(platform::linux::BusConnection& bus) {
  bus_ = &bus;
  subscribe();
  findSession();
}

void LogindLock::busLost() {
  ownerChanges_.reset();
  newSessions_.reset();
  removedSessions_.reset();
  pendingQuestion_.reset();
  follow("");
  bus_ = nullptr;
}

void LogindLock::subscribe() {
  ownerChanges_ = slotOf(
      bus_->watchOwner("org.freedesktop.login1", [this](const std::string&) { findSession(); }));
  // The user's session may begin after this program, and after another one has ended.
  for (const char* member : {"SessionNew", "SessionRemoved"}) {
    auto& slot = std::string_view(member) == "SessionNew" ? newSessions_ : removedSessions_;
    slot = slotOf(bus_->addMatch(
        std::string("type='signal',sender='org.freedesktop.login1',path='/org/freedesktop/login1',"
                    "interface='org.freedesktop.login1.Manager',member='") +
            member + "'",
        [this](const BusMessage&) { findSession(); }));
  }
}

void LogindLock::findSession() {
  auto question = bus_->newMethodCall(kManager, "GetSession", "s", {"auto"});
  if (!question) {
    return;
  }
  question->setAutoStart(false);
  pendingQuestion_ = slotOf(bus_->callAsync(*question, [this](const BusMessage& reply) {
    if (const std::string path = pathOf(reply); !path.empty()) {
      follow(path);
    } else {
      findSessionOfProcess();
    }
  }));
}

void LogindLock::findSessionOfProcess() {
  auto question = bus_->newMethodCall(kManager, "GetSessionByPID", "u", {0});
  if (!question) {
    return;
  }
  question->setAutoStart(false);
  pendingQuestion_ = slotOf(
      bus_->callAsync(*question, [this](const BusMessage& reply) { follow(pathOf(reply)); }));
}

void LogindLock::follow(const std::string& path) {
  if (std::exchange(session_, path) == path) {
    return;
  }
  watch_.reset();
  if (path.empty()) {
    say(std::nullopt);
    return;
  }
  watch_ = PropertyWatch::start(
      *bus_, {kService, path, "org.freedesktop.login1.Session"},
      [this](const PropertyWatch::Properties& properties) {
        const auto* hint = properties ? platform::find(*properties, "LockedHint") : nullptr;
        say(hint == nullptr ? std::nullopt : std::optional(hint->boolValue()));
      });
}

}  // namespace wrixel2::companion
