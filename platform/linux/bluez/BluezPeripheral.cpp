#include "platform/linux/bluez/BluezPeripheral.h"

#include <utility>

#include "platform/Assertion.h"
#include "platform/linux/bluez/BluezCentralContext.h"
#include "platform/linux/bluez/BluezDevice.h"
#include "platform/linux/bluez/BluezErrors.h"

namespace wrixel2::platform::bluez {
namespace {

/// The object behind the interface. One of another radio, or none, is a programming error.
template <typename Bluez, typename Interface>
std::shared_ptr<Bluez> asBluez(const std::shared_ptr<Interface>& object) {
  auto found = std::dynamic_pointer_cast<Bluez>(object);
  if (found == nullptr) {
    assertionFailure("A peripheral was asked about an object that is not its own");
  }
  return found;
}

}  // namespace

BluezPeripheral::BluezPeripheral(BluezCentralContext& context, BluezLinkAnswers& linkAnswers,
                                 std::string device, const Dictionary& properties)
    : context_(&context),
      linkAnswers_(&linkAnswers),
      identifier_(identifierOfDevice(properties)),
      name_(nameOfDevice(properties)) {
  BluezLinkObserver& observer = *this;
  BluezGattAnswers& gattAnswers = *this;
  link_ = std::make_unique<BluezLink>(context, observer, device);
  gatt_ = std::make_unique<BluezGattClient>(context, gattAnswers, std::move(device));
}

void BluezPeripheral::leave() {
  gatt_.reset();
  link_.reset();
  context_ = nullptr;
  linkAnswers_ = nullptr;
  state_ = PeripheralState::disconnected;
}

std::vector<std::shared_ptr<Service>> BluezPeripheral::services() const {
  if (gatt_ == nullptr) {
    return {};
  }
  return {gatt_->services().begin(), gatt_->services().end()};
}

void BluezPeripheral::discoverServices(const std::optional<std::vector<UUID>>& services) {
  if (gatt_) {
    gatt_->discoverServices(services);
  }
}

void BluezPeripheral::discoverCharacteristics(
    const std::optional<std::vector<UUID>>& characteristics,
    const std::shared_ptr<Service>& service) {
  if (gatt_) {
    gatt_->discoverCharacteristics(characteristics, asBluez<BluezService>(service));
  }
}

void BluezPeripheral::discoverDescriptors(const std::shared_ptr<Characteristic>& characteristic) {
  if (gatt_) {
    gatt_->discoverDescriptors(asBluez<BluezCharacteristic>(characteristic));
  }
}

void BluezPeripheral::readValueForCharacteristic(
    const std::shared_ptr<Characteristic>& characteristic) {
  if (gatt_) {
    gatt_->read(asBluez<BluezCharacteristic>(characteristic));
  }
}

void BluezPeripheral::writeValueForCharacteristic(
    const Bytes& data, const std::shared_ptr<Characteristic>& characteristic, WriteType type) {
  if (gatt_) {
    gatt_->write(data, asBluez<BluezCharacteristic>(characteristic), type);
  }
}

void BluezPeripheral::setNotifyValue(bool enabled,
                                     const std::shared_ptr<Characteristic>& characteristic) {
  if (gatt_) {
    gatt_->setNotify(enabled, asBluez<BluezCharacteristic>(characteristic));
  }
}

void BluezPeripheral::readValueForDescriptor(const std::shared_ptr<Descriptor>& descriptor) {
  if (gatt_) {
    gatt_->readDescriptor(asBluez<BluezDescriptor>(descriptor));
  }
}

void BluezPeripheral::writeValueForDescriptor(const Bytes& data,
                                              const std::shared_ptr<Descriptor>& descriptor) {
  if (gatt_) {
    gatt_->writeDescriptor(data, asBluez<BluezDescriptor>(descriptor));
  }
}

void BluezPeripheral::readRSSI() {
  if (link_ == nullptr) {
    return;
  }
  const Error error =
      link_->isUp() ? Error{bluetooth_error::unknown, "The signal strength of a link is not known"}
                    : notConnectedError();
  answer(nullptr, [error](PeripheralDelegate& delegate, const auto& self) {
    delegate.peripheralDidUpdateRSSI(self, error);
  });
}

void BluezPeripheral::connect() {
  if (!context_->isPoweredOn()) {
    linkFailed({bluetooth_error::connectionFailed, "The radio is not powered on"});
    return;
  }
  if (state_ == PeripheralState::disconnected) {
    state_ = PeripheralState::connecting;
  }
  link_->connect();
}

void BluezPeripheral::cancelConnection() {
  // What was not told yet of a connection is not told any more: nobody waits for it now.
  const bool wasAnswered = context_->deliveries().dropConnectAnswer(this);
  if (link_->state() != PeripheralState::disconnected) {
    state_ = PeripheralState::disconnecting;
    link_->cancel();
  } else if (wasAnswered) {
    linkEnded(std::nullopt);
  }
}

void BluezPeripheral::updateName(const Dictionary& properties) {
  auto name = nameOfDevice(properties);
  if (name && name != name_) {
    name_ = std::move(name);
    answer(nullptr, [](PeripheralDelegate& delegate, const auto& self) {
      delegate.peripheralDidUpdateName(self);
    });
  }
}

Task BluezPeripheral::showState() {
  return [weak = weak_from_this()] {
    const auto self = weak.lock();
    if (self && self->link_) {
      // A link that has come up again by now is told after this end.
      const auto state = self->link_->state();
      self->state_ = state == PeripheralState::connected ? PeripheralState::connecting : state;
    }
  };
}

void BluezPeripheral::linkCameUp() {
  gatt_->linkCameUp();
  // Also when it is lost again by then: that is told next.
  linkAnswers_->didConnect(shared_from_this(), [weak = weak_from_this()] {
    if (const auto self = weak.lock()) {
      self->state_ = PeripheralState::connected;
    }
  });
}

void BluezPeripheral::linkLost() { gatt_->linkLost(); }

void BluezPeripheral::linkEnded(const ErrorOrNone& error) {
  linkAnswers_->didDisconnect(shared_from_this(), error, showState());
}

void BluezPeripheral::linkFailed(const Error& error) {
  linkAnswers_->didFailToConnect(shared_from_this(), error, showState());
}

void BluezPeripheral::answer(Task change, Tell tell) {
  context_->deliveries().deliverAnswer(
      this, link_->isUp(),
      [self = shared_from_this(), change = std::move(change), tell = std::move(tell)] {
        if (change) {
          change();
        }
        if (const auto delegate = self->delegate_.lock(); delegate && tell) {
          tell(*delegate, self);
        }
      });
}

}  // namespace wrixel2::platform::bluez
