#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/Peripheral.h"
#include "platform/RunLoop.h"
#include "platform/UUID.h"
#include "platform/Value.h"

namespace wrixel2::platform {

class CentralManager;

/// State of the radio. The numbers are the ones that state reports carry.
enum class CentralState : std::uint8_t {
  unknown = 0,
  resetting = 1,
  unsupported = 2,
  unauthorized = 3,
  poweredOff = 4,
  poweredOn = 5
};

/// Keys of an advertisement's dictionary.
inline constexpr std::string_view kAdvDataManufacturerData =
    "kCBAdvDataManufacturerData";                                             ///< data
inline constexpr std::string_view kAdvDataLocalName = "kCBAdvDataLocalName";  ///< text
/// A connectable scan's option: report each advertisement, not each device once. Boolean.
inline constexpr std::string_view kScanOptionAllowDuplicates = "kCBScanOptionAllowDuplicates";

/// Events of the radio, delivered on the queue given to the central manager. Every operation is
/// optional. The names join the subject and the event.
class CentralManagerDelegate {
 public:
  virtual ~CentralManagerDelegate() = default;

  virtual void centralManagerDidUpdateState(CentralManager&) {}
  /// What problem() says is another thing now.
  virtual void centralManagerProblemChanged(CentralManager&) {}
  /// The manufacturer data is the raw entry: company number, little-endian, then its bytes. The
  /// signal strength is in dBm, 127 when the radio has none.
  virtual void centralManagerDidDiscoverPeripheral(CentralManager&,
                                                   const std::shared_ptr<Peripheral>&,
                                                   const Dictionary& /*advertisementData*/,
                                                   int /*rssi*/) {}
  virtual void centralManagerDidConnectPeripheral(CentralManager&,
                                                  const std::shared_ptr<Peripheral>&) {}
  /// No error: we asked for it, or power was lost. Else bluetooth_error says how the link ended.
  virtual void centralManagerDidDisconnectPeripheral(CentralManager&,
                                                     const std::shared_ptr<Peripheral>&,
                                                     const ErrorOrNone&) {}
  virtual void centralManagerDidFailToConnectPeripheral(CentralManager&,
                                                        const std::shared_ptr<Peripheral>&,
                                                        const ErrorOrNone&) {}

 protected:
  CentralManagerDelegate() = default;
  CentralManagerDelegate(const CentralManagerDelegate&) = default;
  CentralManagerDelegate& operator=(const CentralManagerDelegate&) = default;
};

/// The Bluetooth LE radio in the central role.
///
/// The first state is reported after construction, never inside it. On leaving poweredOn each
/// connected peripheral's disconnection is delivered first, without an error, then the state.
class CentralManager {
 public:
  virtual ~CentralManager() = default;

  virtual CentralState state() const = 0;
  /// What keeps the radio from working, as a sentence without a full stop for whoever can mend it;
  /// empty while it works, and where nothing is known.
  virtual std::string problem() const { return {}; }

  /// None means any service. Advertisements are delivered only while our own scan runs.
  virtual void scanForPeripheralsWithServices(const std::optional<std::vector<UUID>>& services,
                                              const Dictionary& options) = 0;
  virtual void stopScan() = 0;

  /// Never times out: it is answered by a connection, a failure, or after the cancellation below by
  /// a disconnection without an error.
  virtual void connectPeripheral(const std::shared_ptr<Peripheral>& peripheral,
                                 const Dictionary& options) = 0;
  virtual void cancelPeripheralConnection(const std::shared_ptr<Peripheral>& peripheral) = 0;
  /// Ends a link that an earlier run of ours has left over, without making it ours again; nothing
  /// is told of it. Only the caller knows that it is not another program's. Without effect on a
  /// link that is in use here, or where there is none.
  virtual void endLeftoverLink(const std::shared_ptr<Peripheral>& peripheral) = 0;

  /// Whether the system can tell which devices are connected already.
  virtual bool respondsToRetrieveConnectedPeripherals() const { return true; }
  /// Devices with a link to this host, made by whomever, that offer any of the services.
  virtual std::vector<std::shared_ptr<Peripheral>> retrieveConnectedPeripheralsWithServices(
      const std::vector<UUID>& services) = 0;
  virtual std::vector<std::shared_ptr<Peripheral>> retrievePeripheralsWithIdentifiers(
      const std::vector<UUID>& identifiers) = 0;
};

/// Makes central managers on the machine's radio.
class BluetoothRadio {
 public:
  virtual ~BluetoothRadio() = default;
  /// The identifiers are of devices seen in earlier runs: they are looked at also while the system
  /// does not know what they offer. The delegate is held weakly.
  virtual std::unique_ptr<CentralManager> makeCentralManager(
      std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
      const std::vector<UUID>& storedIdentifiers) = 0;
};

}  // namespace wrixel2::platform
