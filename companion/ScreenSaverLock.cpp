#include "companion/ScreenSaverLock.h"

#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

using platform::linux::BusMessage;
using platform::linux::BusSlot;

namespace {

/// The slot, or an empty one where the connection has ended.
BusSlot slotOf(platform::Result<BusSlot> made) { return made ? std::move(*made) : BusSlot(); }

std::optional<bool> flagOf(const BusMessage& message) {
  const auto arguments = message.arguments();
  return arguments && message.signature() == "b" ? std::optional((*arguments)[0].boolValue())
                                                 : std::nullopt;
}

}  // namespace

ScreenSaverLock::ScreenSaverLock(platform::linux::BusConnection& bus, std::string service,
                                 std::vector<std::string> paths)
    : bus_(bus), service_(std::move(service)), paths_(std::move(paths)) {
  subscribe();
  ask(0);
}

void ScreenSaverLock::subscribe() {
  ownerChanges_ =
      slotOf(bus_.watchOwner(service_, [this](const std::string& owner) { ownerChanged(owner); }));
  activeChanges_ = slotOf(bus_.addMatch(
      fmt::format("type='signal',sender='{0}',interface='{0}',member='ActiveChanged'", service_),
      [this](const BusMessage& message) { activeChanged(message); }));
}

void ScreenSaverLock::ask(std::size_t pathIndex) {
  auto question = bus_.newMethodCall({service_, paths_[pathIndex], service_}, "GetActive");
  if (!question) {
    return;
  }
  question->setAutoStart(false);
  pendingQuestion_ = slotOf(bus_.callAsync(
      *question, [this, pathIndex](const BusMessage& reply) { answered(reply, pathIndex); }));
}

void ScreenSaverLock::answered(const BusMessage& reply, std::size_t pathIndex) {
  // The bus answers under its own name for a service that is not there.
  owner_ = reply.sender().starts_with(':') ? reply.sender() : "";
  const auto isActive = flagOf(reply);
  if (!isActive && !owner_.empty() && pathIndex + 1 < paths_.size()) {
    ask(pathIndex + 1);
  } else {
    say(isActive);
  }
}

void ScreenSaverLock::ownerChanged(const std::string& owner) {
  owner_ = owner;
  pendingQuestion_.reset();
  if (owner_.empty()) {
    say(std::nullopt);
  } else {
    ask(0);
  }
}

void ScreenSaverLock::activeChanged(const BusMessage& message) {
  // Others may send a signal of the same look.
  if (owner_.empty() || message.sender() != owner_) {
    return;
  }
  if (const auto isActive = flagOf(message)) {
    say(isActive);
  }
}

}  // namespace wrixel2::companion
