#include "companion/PropertyWatch.h"

#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusConnection;
using platform::linux::BusMessage;
using platform::linux::BusSlot;

constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";

/// The slot, or an empty one where the connection has ended.
BusSlot slotOf(platform::Result<BusSlot> made) { return made ? std::move(*made) : BusSlot(); }

}  // namespace

std::unique_ptr<PropertyWatch> PropertyWatch::start(BusConnection& bus,
                                                    platform::linux::BusAddress address,
                                                    Callback changed) {
  std::unique_ptr<PropertyWatch> watch(
      new PropertyWatch(bus, std::move(address), std::move(changed)));
  watch->subscribe();
  watch->readAll();
  return watch;
}

void PropertyWatch::subscribe() {
  ownerChanges_ = slotOf(bus_.watchOwner(
      address_.destination, [this](const std::string& owner) { ownerChanged(owner); }));
  propertyChanges_ = slotOf(bus_.addMatch(
      fmt::format("type='signal',sender='{}',path='{}',interface='{}',"
                  "member='PropertiesChanged',arg0='{}'",
                  address_.destination, address_.path, kPropertiesInterface, address_.interface),
      [this](const BusMessage& message) { propertiesChanged(message); }));
}

void PropertyWatch::readAll() {
  auto request = bus_.newMethodCall({address_.destination, address_.path, kPropertiesInterface},
                                    "GetAll", "s", {address_.interface});
  if (!request) {
    return;
  }
  request->setAutoStart(false);
  pendingRead_ =
      slotOf(bus_.callAsync(*request, [this](const BusMessage& reply) { answered(reply); }));
}

void PropertyWatch::answered(const BusMessage& reply) {
  pendingRead_.reset();
  // The bus answers under its own name for a service that is not there.
  owner_ = reply.sender().starts_with(':') ? reply.sender() : "";
  const auto arguments = reply.arguments();
  const Dictionary* properties = !reply.isError() && arguments && arguments->size() == 1
                                     ? arguments->front().dictionary()
                                     : nullptr;
  tell(properties == nullptr ? std::nullopt : Properties(*properties));
}

void PropertyWatch::ownerChanged(const std::string& owner) {
  owner_ = owner;
  if (!owner.empty()) {
    readAll();
    return;
  }
  pendingRead_.reset();
  tell(std::nullopt);
}

void PropertyWatch::propertiesChanged(const BusMessage& message) {
  // Others may send a signal of the same look.
  if (pendingRead_ || owner_.empty() || message.sender() != owner_) {
    return;
  }
  const auto arguments = message.arguments();
  if (!arguments || message.signature() != "sa{sv}as") {
    return;
  }
  // Some are only said to have changed; and an object that was not there has come to be.
  if (!properties_ || !(*arguments)[2].array()->empty()) {
    readAll();
    return;
  }
  Properties changed = properties_;
  for (const auto& [name, value] : *(*arguments)[1].dictionary()) {
    changed->insert_or_assign(name, value);
  }
  tell(changed);
}

void PropertyWatch::tell(const Properties& properties) {
  if (std::exchange(isTold_, true) && properties == properties_) {
    return;
  }
  properties_ = properties;
  const Callback changed = changed_;
  changed(properties);
}

}  // namespace wrixel2::companion
