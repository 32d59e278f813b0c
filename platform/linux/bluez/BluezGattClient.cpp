#include "platform/linux/bluez/BluezGattClient.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/linux/bluez/BluezCentralContext.h"
#include "platform/linux/bluez/BluezDevice.h"
#include "platform/linux/bluez/BluezErrors.h"

namespace wrixel2::platform::bluez {
namespace {

bool isWanted(const UUID& uuid, const std::optional<std::vector<UUID>>& wanted) {
  return !wanted || std::ranges::find(*wanted, uuid) != wanted->end();
}

template <typename Known>
bool isAmong(const std::vector<std::shared_ptr<Known>>& known, const std::string& path) {
  return std::ranges::any_of(known, [&path](const auto& one) { return one->path() == path; });
}

}  // namespace

const std::string& BluezGattClient::Operation::path() const {
  return descriptor ? descriptor->path() : characteristic->path();
}

std::string_view BluezGattClient::Operation::interface() const {
  return descriptor ? kDescriptorInterface : kCharacteristicInterface;
}

BluezGattClient::BluezGattClient(BluezCentralContext& context, BluezGattAnswers& answers,
                                 std::string device)
    : context_(context), answers_(answers), device_(std::move(device)) {}

// --- Discovery ---

void BluezGattClient::discover(Discovery discovery) {
  if (!isUp_) {
    discovery(notConnectedError());
    return;
  }
  discoveries_.push_back(std::move(discovery));
  runDiscoveries();
}

void BluezGattClient::runDiscoveries() {
  while (areResolved_ && !discoveries_.empty()) {
    const auto discovery = std::move(discoveries_.front());
    discoveries_.pop_front();
    discovery(std::nullopt);
  }
}

void BluezGattClient::discoverServices(const std::optional<std::vector<UUID>>& services) {
  discover([this, services](const ErrorOrNone& error) {
    if (!error) {
      findServices(services);
    }
    answers_.answer(nullptr, [error](PeripheralDelegate& delegate, const auto& self) {
      delegate.peripheralDidDiscoverServices(self, error);
    });
  });
}

void BluezGattClient::discoverCharacteristics(
    const std::optional<std::vector<UUID>>& characteristics,
    const std::shared_ptr<BluezService>& service) {
  discover([this, characteristics, service](ErrorOrNone error) {
    if (!error && std::ranges::find(services_, service) == services_.end()) {
      error = staleObjectError();
    }
    if (!error) {
      findCharacteristics(characteristics, *service);
    }
    answers_.answer(nullptr, [service, error](PeripheralDelegate& delegate, const auto& self) {
      delegate.peripheralDidDiscoverCharacteristicsForService(self, service, error);
    });
  });
}

void BluezGattClient::discoverDescriptors(
    const std::shared_ptr<BluezCharacteristic>& characteristic) {
  discover([this, characteristic](ErrorOrNone error) {
    if (!error && !isCurrent(*characteristic)) {
      error = staleObjectError();
    }
    if (!error) {
      characteristic->setDescriptors(findDescriptors(*characteristic));
    }
    answers_.answer(
        nullptr, [characteristic, error](PeripheralDelegate& delegate, const auto& self) {
          delegate.peripheralDidDiscoverDescriptorsForCharacteristic(self, characteristic, error);
        });
  });
}

void BluezGattClient::findServices(const std::optional<std::vector<UUID>>& wanted) {
  const auto& objects = context_.objects();
  for (const auto& path : objects.pathsBelow(context_.pathOfDevice(device_), kServiceInterface)) {
    const auto uuid = uuidOfObject(*objects.properties(path, kServiceInterface));
    if (uuid && isWanted(*uuid, wanted) && !isAmong(services_, path)) {
      services_.push_back(std::make_shared<BluezService>(path, *uuid));
    }
  }
}

void BluezGattClient::findCharacteristics(const std::optional<std::vector<UUID>>& wanted,
                                          BluezService& service) {
  const auto& objects = context_.objects();
  const auto owner = *std::ranges::find_if(
      services_, [&service](const auto& one) { return one.get() == &service; });
  for (const auto& path : objects.pathsBelow(service.path(), kCharacteristicInterface)) {
    const auto uuid = uuidOfObject(*objects.properties(path, kCharacteristicInterface));
    if (uuid && isWanted(*uuid, wanted) && !isAmong(service.found(), path)) {
      service.add(std::make_shared<BluezCharacteristic>(path, *uuid, owner));
    }
  }
}

std::vector<std::shared_ptr<BluezDescriptor>> BluezGattClient::findDescriptors(
    const BluezCharacteristic& characteristic) const {
  const auto& objects = context_.objects();
  std::vector<std::shared_ptr<BluezDescriptor>> descriptors;
  for (const auto& path : objects.pathsBelow(characteristic.path(), kDescriptorInterface)) {
    if (const auto uuid = uuidOfObject(*objects.properties(path, kDescriptorInterface))) {
      descriptors.push_back(std::make_shared<BluezDescriptor>(path, *uuid));
    }
  }
  return descriptors;
}

std::shared_ptr<BluezCharacteristic> BluezGattClient::characteristicAt(
    const std::string& path) const {
  for (const auto& service : services_) {
    for (const auto& characteristic : service->found()) {
      if (characteristic->path() == path) {
        return characteristic;
      }
    }
  }
  return nullptr;
}

bool BluezGattClient::isCurrent(const BluezCharacteristic& characteristic) const {
  return characteristicAt(characteristic.path()).get() == &characteristic;
}

void BluezGattClient::linkCameUp() {
  if (std::exchange(isUp_, true)) {
    return;
  }
  const auto* device =
      context_.objects().properties(context_.pathOfDevice(device_), kDeviceInterface);
  servicesResolved(device != nullptr && boolForKey(*device, "ServicesResolved"));
}

void BluezGattClient::servicesResolved(bool areResolved) {
  areResolved_ = false;
  ++fetch_;
  if (isUp_ && areResolved) {
    // The news may overtake the announcement of the last objects.
    context_.fetchObjects([this, fetch = fetch_] {
      if (fetch == fetch_) {
        areResolved_ = true;
        runDiscoveries();
      }
    });
  }
}

void BluezGattClient::linkLost() {
  isUp_ = false;
  areResolved_ = false;
  ++fetch_;
  ++call_;
  busyTimer_.reset();
  const auto error = notConnectedError();
  if (std::exchange(isUnderWay_, false) && operations_.front().characteristic) {
    release(*operations_.front().characteristic, false);
  }
  // A subscription that was asked for may be in force by now.
  std::vector<std::shared_ptr<BluezCharacteristic>> subscribed;
  for (const auto& service : services_) {
    for (const auto& characteristic : service->found()) {
      const bool isBeingSubscribed = !operations_.empty() &&
                                     operations_.front().kind == Kind::startNotify &&
                                     operations_.front().characteristic == characteristic;
      if (characteristic->isSubscribed || isBeingSubscribed) {
        subscribed.push_back(characteristic);
      }
    }
  }
  for (const auto& operation : std::exchange(operations_, {})) {
    tellOutcome(operation, error, nullptr);
  }
  for (const auto& discovery : std::exchange(discoveries_, {})) {
    discovery(error);
  }
  for (const auto& characteristic : subscribed) {
    setIsSubscribed(characteristic, false);
    // bluetoothd would renew it on the next link, whether or not it is wanted there.
    if (context_.objects().properties(characteristic->path(), kCharacteristicInterface) !=
        nullptr) {
      context_.bus().send({characteristic->path(), kCharacteristicInterface, "StopNotify"});
    }
  }
  services_.clear();
}

// --- Operations ---

void BluezGattClient::read(const std::shared_ptr<BluezCharacteristic>& characteristic) {
  perform({Kind::read, characteristic, nullptr, {}});
}

void BluezGattClient::write(const Bytes& data,
                            const std::shared_ptr<BluezCharacteristic>& characteristic,
                            WriteType type) {
  if (type == WriteType::withResponse) {
    perform({Kind::writeRequest, characteristic, nullptr, data});
    return;
  }
  const auto waiting = std::ranges::count(operations_, Kind::writeCommand, &Operation::kind);
  if (static_cast<std::size_t>(waiting) >= kMaximumWaitingCommands) {
    context_.logger().warning(fmt::format("A write to {} is dropped: {} writes wait already",
                                          characteristic->path(), waiting));
    return;
  }
  perform({Kind::writeCommand, characteristic, nullptr, data});
}

void BluezGattClient::setNotify(bool enabled,
                                const std::shared_ptr<BluezCharacteristic>& characteristic) {
  perform({enabled ? Kind::startNotify : Kind::stopNotify, characteristic, nullptr, {}});
}

void BluezGattClient::readDescriptor(const std::shared_ptr<BluezDescriptor>& descriptor) {
  perform({Kind::readDescriptor, nullptr, descriptor, {}});
}

void BluezGattClient::writeDescriptor(const Bytes& data,
                                      const std::shared_ptr<BluezDescriptor>& descriptor) {
  perform({Kind::writeDescriptor, nullptr, descriptor, data});
}

void BluezGattClient::perform(Operation operation) {
  if (!isUp_) {
    tellOutcome(operation, notConnectedError(), nullptr);
    return;
  }
  operations_.push_back(std::move(operation));
  sendNext();
}

ErrorOrNone BluezGattClient::refusalOf(const Operation& operation) const {
  const bool isStale = operation.characteristic && !isCurrent(*operation.characteristic);
  const bool isGone =
      context_.objects().properties(operation.path(), operation.interface()) == nullptr;
  return isStale || isGone ? ErrorOrNone(staleObjectError()) : std::nullopt;
}

void BluezGattClient::sendNext() {
  while (!isUnderWay_ && busyTimer_ == nullptr && !operations_.empty()) {
    const auto& next = operations_.front();
    const auto refusal = refusalOf(next);
    const bool isSubscribed = next.characteristic && next.characteristic->isSubscribed;
    const bool isDone = (next.kind == Kind::startNotify && isSubscribed) ||
                        (next.kind == Kind::stopNotify && !isSubscribed);
    if (!refusal && !isDone) {
      send(next);
      return;
    }
    const Operation operation = std::move(operations_.front());
    operations_.pop_front();
    finish(operation, refusal, nullptr);
  }
}

BluezCall BluezGattClient::Operation::call() const {
  using Options = std::vector<BluezOption>;
  const auto plain = [this](std::string_view member) {
    return BluezCall{path(), interface(), member};
  };
  switch (kind) {
    case Kind::read:
    case Kind::readDescriptor:
      return {path(), interface(), "ReadValue", std::nullopt, Options()};
    case Kind::writeRequest:
      return {path(), interface(), "WriteValue", data, Options{{"type", "s", "request"}}};
    case Kind::writeCommand:
      return {path(), interface(), "WriteValue", data, Options{{"type", "s", "command"}}};
    case Kind::writeDescriptor:
      return {path(), interface(), "WriteValue", data, Options()};
    case Kind::startNotify:
    case Kind::renewNotify:
      return plain("StartNotify");
    case Kind::stopNotify:
      return plain("StopNotify");
  }
  return plain({});
}

void BluezGattClient::send(const Operation& operation) {
  isUnderWay_ = true;
  hold(operation);
  context_.bus().call(operation.call(), kTimeout,
                      [this, number = ++call_](const BluezReply& reply) {
                        if (number == call_) {
                          replied(reply);
                        }
                      });
}

void BluezGattClient::replied(const BluezReply& reply) {
  isUnderWay_ = false;
  if (isInProgress(reply) && ++operations_.front().attempts < kBusyAttempts) {
    if (operations_.front().kind == Kind::read) {
      release(*operations_.front().characteristic, false);
    }
    busyTimer_ = context_.runLoop().scheduledTimer(kBusyPause, false, [this] {
      busyTimer_.reset();
      sendNext();
    });
    return;
  }
  const Operation operation = std::move(operations_.front());
  operations_.pop_front();
  ErrorOrNone error;
  const Bytes* value = nullptr;
  if (reply.isError()) {
    error = errorOfReply(reply);
  } else if (operation.kind == Kind::read || operation.kind == Kind::readDescriptor) {
    value = reply.values.empty() ? nullptr : reply.values.front().data();
    if (value == nullptr) {
      error = Error{bluetooth_error::unknown, "The read was answered without a value"};
    }
  }
  finish(operation, error, value);
  sendNext();
}

void BluezGattClient::finish(const Operation& operation, const ErrorOrNone& error,
                             const Bytes* value) {
  const auto& characteristic = operation.characteristic;
  switch (operation.kind) {
    case Kind::read:
      release(*characteristic, !error);
      tellOutcome(operation, error, value);
      break;
    case Kind::startNotify:
    case Kind::renewNotify:
      if (!error) {
        setIsSubscribed(characteristic, true);
      } else if (operation.kind == Kind::renewNotify) {
        context_.logger().warning(fmt::format("Notifications of {} are not renewed: {}",
                                              characteristic->path(), description(error)));
        setIsSubscribed(characteristic, false);
      }
      // First that it notifies, then what it has notified.
      tellOutcome(operation, error, nullptr);
      release(*characteristic, false);
      break;
    case Kind::stopNotify:
      if (!error) {
        setIsSubscribed(characteristic, false);
      }
      tellOutcome(operation, error, nullptr);
      break;
    case Kind::writeCommand:
      if (error) {
        context_.logger().warning(fmt::format("A write without response to {} failed: {}",
                                              operation.path(), description(error)));
      }
      break;
    case Kind::writeRequest:
    case Kind::readDescriptor:
    case Kind::writeDescriptor:
      tellOutcome(operation, error, value);
      break;
  }
}

void BluezGattClient::tellOutcome(const Operation& operation, const ErrorOrNone& error,
                                  const Bytes* value) {
  const auto& characteristic = operation.characteristic;
  const auto& descriptor = operation.descriptor;
  switch (operation.kind) {
    case Kind::read:
      answers_.answer(
          value == nullptr ? Task()
                           : [characteristic, value = *value] { characteristic->setValue(value); },
          [characteristic, error](PeripheralDelegate& delegate, const auto& self) {
            delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic, error);
          });
      return;
    case Kind::writeRequest:
      answers_.answer(
          nullptr, [characteristic, error](PeripheralDelegate& delegate, const auto& self) {
            delegate.peripheralDidWriteValueForCharacteristic(self, characteristic, error);
          });
      return;
    case Kind::startNotify:
    case Kind::stopNotify:
      answers_.answer(nullptr, [characteristic, error](PeripheralDelegate& delegate,
                                                       const auto& self) {
        delegate.peripheralDidUpdateNotificationStateForCharacteristic(self, characteristic, error);
      });
      return;
    case Kind::readDescriptor:
      answers_.answer(nullptr, [descriptor, error](PeripheralDelegate& delegate, const auto& self) {
        delegate.peripheralDidUpdateValueForDescriptor(self, descriptor, error);
      });
      return;
    case Kind::writeDescriptor:
      answers_.answer(nullptr, [descriptor, error](PeripheralDelegate& delegate, const auto& self) {
        delegate.peripheralDidWriteValueForDescriptor(self, descriptor, error);
      });
      return;
    case Kind::writeCommand:
    case Kind::renewNotify:
      return;
  }
}

// --- Values ---

// bluetoothd announces what a read gave as it announces a notification, and it announces
// notifications before it answers the request for them. While either is under way, what is
// announced is therefore kept back until the answer tells what it is.
void BluezGattClient::hold(const Operation& operation) {
  const bool holds = operation.kind == Kind::read || operation.kind == Kind::startNotify ||
                     operation.kind == Kind::renewNotify;
  if (holds) {
    operation.characteristic->isHolding = true;
  }
}

void BluezGattClient::release(BluezCharacteristic& characteristic, bool lastIsAnswer) {
  characteristic.isHolding = false;
  auto held = std::exchange(characteristic.held, {});
  if (lastIsAnswer && !held.empty()) {
    held.pop_back();
  }
  const auto shared = characteristicAt(characteristic.path());
  if (shared.get() != &characteristic) {
    return;
  }
  for (const auto& value : held) {
    notify(shared, value);
  }
}

void BluezGattClient::valueAnnounced(const std::string& path, const Bytes& value) {
  const auto characteristic = characteristicAt(path);
  if (characteristic == nullptr) {
    return;
  }
  if (characteristic->isHolding) {
    characteristic->held.push_back(value);
  } else {
    notify(characteristic, value);
  }
}

// Without a subscription of ours it is what another program has read or is notified of.
void BluezGattClient::notify(const std::shared_ptr<BluezCharacteristic>& characteristic,
                             const Bytes& value) {
  if (!characteristic->isSubscribed) {
    return;
  }
  answers_.answer([characteristic, value] { characteristic->setValue(value); },
                  [characteristic](PeripheralDelegate& delegate, const auto& self) {
                    delegate.peripheralDidUpdateValueForCharacteristic(self, characteristic,
                                                                       std::nullopt);
                  });
}

void BluezGattClient::setIsSubscribed(const std::shared_ptr<BluezCharacteristic>& characteristic,
                                      bool is) {
  characteristic->isSubscribed = is;
  answers_.answer([characteristic, is] { characteristic->setIsNotifying(is); }, nullptr);
}

// --- Objects that come and go while the link is up ---

void BluezGattClient::objectRemoved(const std::string& path) {
  if (const auto characteristic = characteristicAt(path)) {
    characteristic->isRemoved = true;
  }
  if (isUnderWay_ && operations_.front().path() == path) {
    // bluetoothd may never answer for an object that is gone.
    ++call_;
    isUnderWay_ = false;
    const Operation operation = std::move(operations_.front());
    operations_.pop_front();
    finish(operation, staleObjectError(), nullptr);
    sendNext();
  }
}

void BluezGattClient::objectAdded(const std::string& path) {
  const auto characteristic = characteristicAt(path);
  if (characteristic != nullptr && std::exchange(characteristic->isRemoved, false) &&
      characteristic->isSubscribed) {
    // bluetoothd has forgotten the subscription.
    perform({Kind::renewNotify, characteristic, nullptr, {}});
  }
}

}  // namespace wrixel2::platform::bluez
