#pragma once

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "band/VirtualBand.h"
#include "bench/Session.h"
#include "platform/linux/LinuxClock.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/platform/linux/PrivateBus.h"
#include "tests/platform/linux/bluez/FakeBluetoothd.h"

namespace wrixel2::bench {

using Moment = std::chrono::steady_clock::time_point;

/// A system bus of our own with a bluetoothd that has a virtual band on the air. Everything it does
/// it does at once: what is measured is the daemon's time, not the air's.
class BandOnBus {
 public:
  /// All are borrowed.
  BandOnBus(platform::linux::LinuxRunLoop& loop, platform::Log& log,
            const platform::TimeZone& zone);
  BandOnBus(const BandOnBus&) = delete;
  BandOnBus& operator=(const BandOnBus&) = delete;

  const std::string& address() const { return privateBus_.address(); }
  band::VirtualBand& band() { return band_; }

  /// Whether a scan was ever begun.
  bool isScannedFor() const {
    return std::ranges::find(bluetoothd_.calls, "StartDiscovery") != bluetoothd_.calls.end();
  }

  /// Forgets the last call that was written to the band.
  void expectWrite() { written_.reset(); }
  /// When the first one since then arrived here, and the characteristic that it was for.
  const std::optional<Moment>& written() const { return written_; }
  const std::string& writtenPath() const { return writtenPath_; }

 private:
  platform::linux::PrivateBus privateBus_;
  std::unique_ptr<platform::linux::BusConnection> bus_;
  platform::linux::LinuxClock clock_;
  platform::simulated::SimulatedPlatform rest_;  ///< what the band has no use for
  platform::Platform platform_;
  band::VirtualBand band_;
  platform::bluez::FakeBluetoothd bluetoothd_;
  platform::linux::BusSlot filter_;
  std::optional<Moment> written_;
  std::string writtenPath_;
};

}  // namespace wrixel2::bench
