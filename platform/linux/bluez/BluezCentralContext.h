#pragma once

#include <string>

#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/RunLoop.h"
#include "platform/linux/bluez/BluezBus.h"
#include "platform/linux/bluez/BluezObjects.h"
#include "platform/linux/bluez/DeliveryQueue.h"

namespace wrixel2::platform::bluez {

/// What a central manager's peripherals and their parts reach of it.
class BluezCentralContext {
 public:
  virtual BluezBus& bus() = 0;
  virtual RunLoop& runLoop() = 0;
  virtual const Clock& clock() const = 0;
  virtual const Logger& logger() const = 0;
  virtual const BluezObjects& objects() const = 0;
  virtual DeliveryQueue& deliveries() = 0;

  /// The device's path below the adapter in use.
  virtual std::string pathOfDevice(const std::string& device) const = 0;
  virtual bool isPoweredOn() const = 0;
  /// Gets all objects anew and then calls back; not if bluetoothd goes away before.
  virtual void fetchObjects(Task done) = 0;
  /// A link begins or ends to need the radio, for a search or for a connection.
  virtual void linkNeedsChanged() = 0;

 protected:
  BluezCentralContext() = default;
  BluezCentralContext(const BluezCentralContext&) = default;
  BluezCentralContext& operator=(const BluezCentralContext&) = default;
  ~BluezCentralContext() = default;
};

}  // namespace wrixel2::platform::bluez
