#include "platform/simulated/SimulatedPeripheral.h"

#include <algorithm>
#include <utility>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"
#include "platform/Assertion.h"
#include "platform/simulated/SimulatedCentralManager.h"
#include "platform/simulated/VirtualLink.h"

namespace wrixel2::platform::simulated {

namespace {

/// The object behind the interface. One of another radio, or none, is a programming error.
template <typename Simulated, typename Interface>
std::shared_ptr<Simulated> asSimulated(const std::shared_ptr<Interface>& object) {
  auto found = std::dynamic_pointer_cast<Simulated>(object);
  if (found == nullptr) {
    assertionFailure("A virtual peripheral was asked about an object that is not its own");
  }
  return found;
}

/// An object of an earlier link names nothing on this one.
ErrorOrNone refusalIfStale(bool isStale) {
  if (isStale) {
    return Error{bluetooth_error::invalidHandle, "The object belongs to an earlier link"};
  }
  return std::nullopt;
}

}  // namespace

SimulatedPeripheral::SimulatedPeripheral(SimulatedCentralManager& manager, VirtualLink& link)
    : manager_(&manager),
      link_(&link),
      identifier_(VirtualRadio::identifierOf(link.band())),
      name_(link.band().name()) {}

bool SimulatedPeripheral::ownsLink() const { return link_ != nullptr && link_->owner() == this; }

template <typename Call>
void SimulatedPeripheral::tellDelegate(const Call& call) {
  if (const auto delegate = delegate_.lock()) {
    call(*delegate);
  }
}

template <typename Call>
void SimulatedPeripheral::answer(Call call) {
  manager_->deliverAnswer(*this, ownsLink(),
                          [self = shared_from_this(), call = std::move(call)] { call(self); });
}

void SimulatedPeripheral::request(RadioOperation kind, const UUID& on, const ErrorOrNone& refusal,
                                  Perform perform) {
  if (manager_ == nullptr) {
    return;
  }
  if (!ownsLink()) {
    perform(Error{bluetooth_error::notConnected, "The device is not connected"});
  } else if (refusal) {
    // Through the queue all the same, so that answers keep the order of the requests.
    link_->enqueue({kind, on, TimeInterval::zero(),
                    [perform = std::move(perform), refusal](const ErrorOrNone& failure) {
                      perform(failure ? failure : refusal);
                    }});
  } else {
    link_->enqueue({kind, on, manager_->radio().timings.exchange, std::move(perform)});
  }
}

std::shared_ptr<SimulatedService> SimulatedPeripheral::knownService(const UUID& uuid) const {
  const auto found = std::ranges::find_if(
      services_, [&uuid](const auto& service) { return service->uuid() == uuid; });
  return found == services_.end() ? nullptr : *found;
}

void SimulatedPeripheral::discoverServices(const std::optional<std::vector<UUID>>& services) {
  request(RadioOperation::discoverServices, UUID(), std::nullopt,
          [this, services](const ErrorOrNone& failure) {
            answer([services, failure](const std::shared_ptr<SimulatedPeripheral>& self) {
              if (!failure) {
                for (const auto& offered : band::bandServices()) {
                  const bool isWanted =
                      !services || std::ranges::find(*services, offered.uuid) != services->end();
                  if (isWanted && self->knownService(offered.uuid) == nullptr) {
                    self->services_.push_back(std::make_shared<SimulatedService>(offered.uuid));
                  }
                }
              }
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidDiscoverServices(self, failure);
              });
            });
          });
}

void SimulatedPeripheral::discoverCharacteristics(
    const std::optional<std::vector<UUID>>& characteristics,
    const std::shared_ptr<Service>& service) {
  const auto found = asSimulated<SimulatedService>(service);
  request(
      RadioOperation::discoverCharacteristics, found->uuid(), refusalIfStale(found->isDetached()),
      [this, found, characteristics](const ErrorOrNone& failure) {
        answer([found, characteristics, failure](const std::shared_ptr<SimulatedPeripheral>& self) {
          if (!failure) {
            found->findCharacteristics(characteristics);
          }
          self->tellDelegate([&](PeripheralDelegate& delegate) {
            delegate.peripheralDidDiscoverCharacteristicsForService(self, found, failure);
          });
        });
      });
}

void SimulatedPeripheral::discoverDescriptors(
    const std::shared_ptr<Characteristic>& characteristic) {
  const auto found = asSimulated<SimulatedCharacteristic>(characteristic);
  request(RadioOperation::discoverDescriptors, found->uuid(),
          refusalIfStale(found->service() == nullptr), [this, found](const ErrorOrNone& failure) {
            answer([found, failure](const std::shared_ptr<SimulatedPeripheral>& self) {
              if (!failure) {
                found->findDescriptors();
              }
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidDiscoverDescriptorsForCharacteristic(self, found, failure);
              });
            });
          });
}

void SimulatedPeripheral::readValueForCharacteristic(
    const std::shared_ptr<Characteristic>& characteristic) {
  const auto found = asSimulated<SimulatedCharacteristic>(characteristic);
  const auto service = found->service();
  request(RadioOperation::read, found->uuid(), refusalIfStale(service == nullptr),
          [this, found, service](const ErrorOrNone& failure) {
            const Result<Bytes> result = failure
                                             ? Result<Bytes>(*failure)
                                             : link_->band().read(service->uuid(), found->uuid());
            answer([found, result](const std::shared_ptr<SimulatedPeripheral>& self) {
              if (result) {
                found->setValue(*result);
              }
              const ErrorOrNone error = result ? std::nullopt : ErrorOrNone(result.error());
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidUpdateValueForCharacteristic(self, found, error);
              });
            });
          });
}

void SimulatedPeripheral::writeValueForCharacteristic(
    const Bytes& data, const std::shared_ptr<Characteristic>& characteristic, WriteType type) {
  const auto found = asSimulated<SimulatedCharacteristic>(characteristic);
  const auto service = found->service();
  if (type == WriteType::withoutResponse) {
    if (manager_ != nullptr && ownsLink() && service != nullptr) {
      link_->enqueue({std::nullopt, found->uuid(), manager_->radio().timings.writeCommand,
                      [link = link_, data, found, service](const ErrorOrNone& failure) {
                        if (!failure) {
                          // Whether the band takes it, the sender of a command never hears.
                          static_cast<void>(link->band().write(service->uuid(), found->uuid(), data,
                                                               WriteType::withoutResponse));
                        }
                      }});
    }
    return;
  }
  request(RadioOperation::write, found->uuid(), refusalIfStale(service == nullptr),
          [this, found, service, data](const ErrorOrNone& failure) {
            const ErrorOrNone error = failure ? failure
                                              : link_->band().write(service->uuid(), found->uuid(),
                                                                    data, WriteType::withResponse);
            answer([found, error](const std::shared_ptr<SimulatedPeripheral>& self) {
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidWriteValueForCharacteristic(self, found, error);
              });
            });
          });
}

void SimulatedPeripheral::setNotifyValue(bool enabled,
                                         const std::shared_ptr<Characteristic>& characteristic) {
  const auto found = asSimulated<SimulatedCharacteristic>(characteristic);
  const auto service = found->service();
  request(RadioOperation::setNotify, found->uuid(), refusalIfStale(service == nullptr),
          [this, found, service, enabled](const ErrorOrNone& failure) {
            const ErrorOrNone error =
                failure ? failure
                        : link_->band().subscribe(service->uuid(), found->uuid(), enabled);
            answer([found, error, enabled](const std::shared_ptr<SimulatedPeripheral>& self) {
              if (!error) {
                found->setIsNotifying(enabled);
              }
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidUpdateNotificationStateForCharacteristic(self, found, error);
              });
            });
          });
}

void SimulatedPeripheral::readValueForDescriptor(const std::shared_ptr<Descriptor>& descriptor) {
  request(RadioOperation::readDescriptor, descriptor->uuid(), std::nullopt,
          [this, descriptor](const ErrorOrNone& failure) {
            answer([descriptor, failure](const std::shared_ptr<SimulatedPeripheral>& self) {
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidUpdateValueForDescriptor(self, descriptor, failure);
              });
            });
          });
}

void SimulatedPeripheral::writeValueForDescriptor(const Bytes& /*data*/,
                                                  const std::shared_ptr<Descriptor>& descriptor) {
  const Error refusal{band::att_error::writeNotPermitted,
                      "Subscriptions are not made by writing a descriptor"};
  request(RadioOperation::writeDescriptor, descriptor->uuid(), refusal,
          [this, descriptor](const ErrorOrNone& failure) {
            answer([descriptor, failure](const std::shared_ptr<SimulatedPeripheral>& self) {
              self->tellDelegate([&](PeripheralDelegate& delegate) {
                delegate.peripheralDidWriteValueForDescriptor(self, descriptor, failure);
              });
            });
          });
}

void SimulatedPeripheral::readRSSI() {
  request(RadioOperation::readRSSI, UUID(), std::nullopt, [this](const ErrorOrNone& failure) {
    answer([failure](const std::shared_ptr<SimulatedPeripheral>& self) {
      self->tellDelegate(
          [&](PeripheralDelegate& delegate) { delegate.peripheralDidUpdateRSSI(self, failure); });
    });
  });
}

void SimulatedPeripheral::connect() {
  if (manager_->radio().state() != CentralState::poweredOn) {
    deliverConnectionFailure({bluetooth_error::connectionFailed, "The radio is not powered on"});
  } else if (ownsLink()) {
    manager_->deliverConnection(*this, [this] { state_ = PeripheralState::connected; });
  } else if (!isConnectionPending_) {
    isConnectionPending_ = true;
    if (state_ == PeripheralState::disconnected) {
      state_ = PeripheralState::connecting;
    }
    tryToConnect();
  }
}

void SimulatedPeripheral::tryToConnect() {
  if (!isConnectionPending_ || connectTimer_ != nullptr) {
    return;
  }
  if (link_->isUp()) {
    // Somebody else's link serves us as well; another of our managers' does not.
    if (link_->owner() == nullptr) {
      completeConnection();
    }
  } else if (link_->band().isInRange()) {
    connectTimer_ = manager_->radio().runLoop().scheduledTimer(
        manager_->radio().timings.connect, false, [this] {
          connectTimer_.reset();
          if (!link_->isUp() && link_->band().isInRange()) {
            completeConnection();
          } else {
            tryToConnect();
          }
        });
  }
}

void SimulatedPeripheral::completeConnection() {
  isConnectionPending_ = false;
  if (const auto failure = manager_->radio().takeConnectFailure()) {
    deliverConnectionFailure(*failure);
    return;
  }
  link_->claim(this);
  manager_->deliverConnection(*this, [this] { state_ = PeripheralState::connected; });
}

void SimulatedPeripheral::cancelConnection() {
  if (isConnectionPending_) {
    forgetPendingConnection();
  } else if (ownsLink()) {
    // A connection that was not announced yet is not announced any more.
    manager_->dropConnectionEvent(*this);
    state_ = PeripheralState::disconnecting;
    link_->end(std::nullopt);
  }
}

void SimulatedPeripheral::forgetPendingConnection() {
  if (isConnectionPending_) {
    isConnectionPending_ = false;
    connectTimer_.reset();
    state_ = PeripheralState::disconnecting;
    deliverDisconnection(std::nullopt);
  }
}

void SimulatedPeripheral::leave() {
  connectTimer_.reset();
  isConnectionPending_ = false;
  if (ownsLink()) {
    link_->abandon();
  }
  state_ = PeripheralState::disconnected;
  manager_ = nullptr;
  link_ = nullptr;
}

void SimulatedPeripheral::linkEnded(const ErrorOrNone& error) { deliverDisconnection(error); }

void SimulatedPeripheral::settle() {
  // A new connection may have been asked for before the end of the old one was delivered.
  const bool isReconnecting = isConnectionPending_ || ownsLink();
  state_ = isReconnecting ? PeripheralState::connecting : PeripheralState::disconnected;
}

void SimulatedPeripheral::deliverConnectionFailure(const Error& error) {
  manager_->deliverConnectionFailure(*this, error, [this] { settle(); });
}

void SimulatedPeripheral::deliverDisconnection(const ErrorOrNone& error) {
  manager_->deliverDisconnection(*this, error, [this] {
    settle();
    for (const auto& service : std::exchange(services_, {})) {
      service->detach();
    }
  });
}

void SimulatedPeripheral::receiveNotification(const UUID& service, const UUID& characteristic,
                                              const Bytes& value) {
  const auto known = knownService(service);
  const auto found = known == nullptr ? nullptr : known->characteristic(characteristic);
  if (found == nullptr) {
    return;
  }
  answer([found, value](const std::shared_ptr<SimulatedPeripheral>& self) {
    found->setValue(value);
    self->tellDelegate([&](PeripheralDelegate& delegate) {
      delegate.peripheralDidUpdateValueForCharacteristic(self, found, std::nullopt);
    });
  });
}

}  // namespace wrixel2::platform::simulated
