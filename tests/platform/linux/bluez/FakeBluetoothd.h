#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "band/BandProfile.h"
#include "band/BandRadio.h"
#include "band/VirtualBand.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::bluez {

/// A bluetoothd on a real bus, with one adapter and a virtual band on the air: the types of its
/// arguments, the order of what it says and the traps in it are those of the real one.
class FakeBluetoothd : private band::BandRadio {
 public:
  /// Both outlive it. It is not there before appear().
  FakeBluetoothd(linux::BusConnection& bus, band::VirtualBand& band);
  FakeBluetoothd(const FakeBluetoothd&) = delete;
  FakeBluetoothd& operator=(const FakeBluetoothd&) = delete;
  ~FakeBluetoothd() override;

  void appear();
  void vanish();
  void setIsPowered(bool isPowered);
  /// The link ends, with the signal of 5.83 and later that tells the reason.
  void endLinkBecause(const std::string& reason);
  void advertise();

  /// The next call of the member ends the program in place of an answer.
  std::string diesAt;
  /// Members of the calls that came.
  std::vector<std::string> calls;
  /// What a client must not do.
  std::vector<std::string> complaints;

 private:
  void notify(const UUID& service, const UUID& characteristic, const Bytes& value) override;
  ErrorOrNone endLink(long code) override;
  void presenceChanged() override {}

  linux::BusMethod method(std::string name, std::vector<ExportedArgument> in,
                          std::vector<ExportedArgument> out,
                          std::function<void(const linux::BusMessage& call)> handle);
  void exportAt(const std::string& path, linux::BusInterface interface);
  void exportAdapter();
  void exportDevice();
  void exportServices();
  linux::BusInterface characteristicInterface(const std::string& path, const UUID& service,
                                              const band::BandCharacteristic& characteristic);
  void changed(const std::string& path, std::string_view interface, const char* property);

  void setDiscoveryFilter(const linux::BusMessage& call);
  void connect(const linux::BusMessage& call);
  void disconnect();

  linux::BusConnection& bus_;
  band::VirtualBand& band_;
  std::string devicePath_;
  std::vector<linux::BusSlot> slots_;
  std::vector<std::string> gattPaths_;
  /// Of a characteristic, by its service's identifier and its own.
  std::map<std::pair<UUID, UUID>, std::string> pathOf_;
  bool isPowered_ = true;
  bool isDiscovering_ = false;
  bool isConnected_ = false;
  bool areResolved_ = false;
  std::map<std::string, Bytes> values_;
};

}  // namespace wrixel2::platform::bluez
