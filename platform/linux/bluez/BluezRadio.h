#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/CentralManager.h"
#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::linux {
class LinuxRunLoop;
}  // namespace wrixel2::platform::linux

namespace wrixel2::platform::bluez {

class BluezCentralManager;

/// The machine's Bluetooth adapters, by way of bluetoothd.
class BluezRadio final : public BluetoothRadio {
 public:
  /// Each central manager is a client of its own, because bluetoothd keeps scans and subscriptions
  /// by client.
  using BusFactory = std::function<std::unique_ptr<BluezBus>()>;

  /// The adapter is "hci0" and the like; none: the first that has power, else the first. Loop,
  /// clock and log outlive the radio and its central managers.
  BluezRadio(BusFactory makeBus, RunLoop& loop, const Clock& clock, Log& log,
             std::optional<std::string> adapter);
  /// Over the machine's system bus, or the bus at another D-Bus address.
  static std::unique_ptr<BluezRadio> overSystemBus(linux::LinuxRunLoop& loop, const Clock& clock,
                                                   Log& log, std::optional<std::string> adapter,
                                                   const std::string& address = {});

  std::unique_ptr<CentralManager> makeCentralManager(
      std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
      const std::vector<UUID>& storedIdentifiers) override;

  /// Asks for the end of all our links without waiting for it: for a process that is about to go,
  /// because links outlive it. The requests are on their way when it returns.
  void endLinks();

 private:
  BusFactory makeBus_;
  RunLoop& loop_;
  const Clock& clock_;
  Log& log_;
  std::optional<std::string> adapter_;
  std::vector<std::weak_ptr<BluezCentralManager*>> managers_;
};

}  // namespace wrixel2::platform::bluez
