#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/Service.h"
#include "platform/UUID.h"

namespace wrixel2::platform {

class Peripheral;

/// The link as this central sees it: a link that we have not claimed reads disconnected.
enum class PeripheralState : std::uint8_t {
  disconnected = 0,
  connecting = 1,
  connected = 2,
  disconnecting = 3
};

enum class WriteType : std::uint8_t { withResponse = 0, withoutResponse = 1 };

/// Answers and events of one remote device, delivered on the central manager's queue. Every
/// operation is optional.
class PeripheralDelegate {
 public:
  virtual ~PeripheralDelegate() = default;

  virtual void peripheralDidDiscoverServices(const std::shared_ptr<Peripheral>&,
                                             const ErrorOrNone&) {}
  virtual void peripheralDidDiscoverIncludedServicesForService(const std::shared_ptr<Peripheral>&,
                                                               const std::shared_ptr<Service>&,
                                                               const ErrorOrNone&) {}
  virtual void peripheralDidDiscoverCharacteristicsForService(const std::shared_ptr<Peripheral>&,
                                                              const std::shared_ptr<Service>&,
                                                              const ErrorOrNone&) {}
  virtual void peripheralDidDiscoverDescriptorsForCharacteristic(
      const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>&,
      const ErrorOrNone&) {}
  /// The answer to a read, or a notified value: the characteristic's value() is the new one until
  /// the call returns.
  virtual void peripheralDidUpdateValueForCharacteristic(const std::shared_ptr<Peripheral>&,
                                                         const std::shared_ptr<Characteristic>&,
                                                         const ErrorOrNone&) {}
  virtual void peripheralDidUpdateValueForDescriptor(const std::shared_ptr<Peripheral>&,
                                                     const std::shared_ptr<Descriptor>&,
                                                     const ErrorOrNone&) {}
  virtual void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<Peripheral>&, const std::shared_ptr<Characteristic>&,
      const ErrorOrNone&) {}
  virtual void peripheralDidWriteValueForCharacteristic(const std::shared_ptr<Peripheral>&,
                                                        const std::shared_ptr<Characteristic>&,
                                                        const ErrorOrNone&) {}
  virtual void peripheralDidWriteValueForDescriptor(const std::shared_ptr<Peripheral>&,
                                                    const std::shared_ptr<Descriptor>&,
                                                    const ErrorOrNone&) {}
  virtual void peripheralDidUpdateRSSI(const std::shared_ptr<Peripheral>&, const ErrorOrNone&) {}
  virtual void peripheralDidUpdateName(const std::shared_ptr<Peripheral>&) {}

 protected:
  PeripheralDelegate() = default;
  PeripheralDelegate(const PeripheralDelegate&) = default;
  PeripheralDelegate& operator=(const PeripheralDelegate&) = default;
};

/// A remote device. One device is one object for the life of its central manager, so identity tells
/// devices apart.
///
/// Every read, acknowledged write, notification request and discovery is answered exactly once, in
/// the order of the requests on one characteristic: with an error on a dead link, before the
/// disconnection is delivered. Writes without response have no answer.
class Peripheral {
 public:
  virtual ~Peripheral() = default;

  virtual const UUID& identifier() const = 0;
  virtual std::optional<std::string> name() const = 0;
  virtual PeripheralState state() const = 0;
  /// Discovered services; empty before discovery and after the link's end.
  virtual std::vector<std::shared_ptr<Service>> services() const = 0;

  /// Held weakly; none ends the delivery.
  virtual void setDelegate(std::weak_ptr<PeripheralDelegate> delegate) = 0;

  /// Only those listed; none means all.
  virtual void discoverServices(const std::optional<std::vector<UUID>>& services) = 0;
  virtual void discoverCharacteristics(const std::optional<std::vector<UUID>>& characteristics,
                                       const std::shared_ptr<Service>& service) = 0;
  virtual void discoverDescriptors(const std::shared_ptr<Characteristic>& characteristic) = 0;

  virtual void readValueForCharacteristic(
      const std::shared_ptr<Characteristic>& characteristic) = 0;
  virtual void writeValueForCharacteristic(const Bytes& data,
                                           const std::shared_ptr<Characteristic>& characteristic,
                                           WriteType type) = 0;
  virtual void setNotifyValue(bool enabled,
                              const std::shared_ptr<Characteristic>& characteristic) = 0;
  virtual void readValueForDescriptor(const std::shared_ptr<Descriptor>& descriptor) = 0;
  virtual void writeValueForDescriptor(const Bytes& data,
                                       const std::shared_ptr<Descriptor>& descriptor) = 0;
  virtual void readRSSI() = 0;
};

}  // namespace wrixel2::platform
