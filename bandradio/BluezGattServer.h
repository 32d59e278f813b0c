#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/UUID.h"
#include "platform/linux/BusSlot.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::band {
struct BandCharacteristic;
class VirtualBand;
}  // namespace wrixel2::band

namespace wrixel2::bandradio {

/// The band's services and characteristics as a GATT application of one of bluetoothd's adapters.
/// It registers itself now, and again whenever bluetoothd or the adapter comes back.
class BluezGattServer {
 public:
  struct Callbacks {
    /// The services can be found from now on, or cannot any more.
    std::function<void(bool isRegistered)> registration;
    /// Before anything that a host asks reaches the band.
    std::function<void()> beforeRequest;
  };

  /// On the system bus; bus and band are borrowed. The adapter is its object's path.
  BluezGattServer(platform::linux::BusConnection& bus, std::string adapterPath,
                  band::VirtualBand& band, platform::Log& log, Callbacks callbacks);
  BluezGattServer(const BluezGattServer&) = delete;
  BluezGattServer& operator=(const BluezGattServer&) = delete;

  /// Puts the objects on the bus and registers them. An error means that nothing will work.
  platform::ErrorOrNone start();
  bool isRegistered() const { return isRegistered_; }

  /// To every host that has subscribed.
  void notify(const platform::UUID& service, const platform::UUID& characteristic,
              const platform::Bytes& value);

 private:
  platform::ErrorOrNone exportObjects();
  platform::linux::BusInterface characteristicInterface(
      const platform::UUID& service, const band::BandCharacteristic& characteristic,
      const std::string& servicePath);
  void read(const platform::UUID& service, const platform::UUID& characteristic,
            const platform::linux::BusMessage& call);
  void write(const platform::UUID& service, const platform::UUID& characteristic,
             const platform::linux::BusMessage& call);
  void subscribe(const platform::UUID& service, const platform::UUID& characteristic, bool enabled,
                 const platform::linux::BusMessage& call);

  platform::ErrorOrNone watchBluetoothd();
  void registerApplication();
  void setIsRegistered(bool isRegistered);

  platform::linux::BusConnection& bus_;
  std::string adapterPath_;
  band::VirtualBand& band_;
  platform::Logger logger_;
  Callbacks callbacks_;
  bool isRegistered_ = false;
  std::vector<platform::linux::BusSlot> slots_;
  platform::linux::BusSlot registration_;
};

}  // namespace wrixel2::bandradio
