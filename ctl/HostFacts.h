#pragma once

#include <optional>
#include <string>
#include <vector>

namespace wrixel2::ctl {

struct BluetoothAdapter {
  std::string name;  ///< "hci0"
  bool isPowered = false;
};

/// A switch of the kernel's that can turn a radio off.
struct RadioSwitch {
  std::string name;
  bool isSoftBlocked = false;
  bool isHardBlocked = false;
};

/// A service of the session's service manager.
struct ServiceUnit {
  std::string name;
  std::string state;  ///< "enabled", "disabled", …; empty: there is no such unit
};

/// What the machine has to offer the band's service, found out once.
struct HostFacts {
  /// Why the system bus cannot be used; empty where it can.
  std::string systemBusProblem;
  bool bluetoothServiceRuns = false;
  /// Why the Bluetooth service does not answer us; empty where it does.
  std::string bluetoothProblem;
  std::vector<BluetoothAdapter> adapters;
  std::vector<RadioSwitch> radioSwitches;  ///< of Bluetooth
  bool hasWakeClock = false;               ///< the kernel can wake the phone for a timer
  std::optional<bool> daemonMayWake;       ///< none: the daemon does not run, or is not ours to see
  /// None where no systemd manages the session.
  std::optional<std::vector<ServiceUnit>> units;
  /// The permission bits of the key's file; none without the file.
  std::optional<unsigned> keyFileMode;
};

}  // namespace wrixel2::ctl
