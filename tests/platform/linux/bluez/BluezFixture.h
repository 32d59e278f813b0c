#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "platform/CentralManager.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/simulated/RecordingLog.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedRunLoop.h"
#include "platform/simulated/SimulatedTimeZone.h"
#include "tests/platform/linux/bluez/EventRecorder.h"
#include "tests/platform/linux/bluez/FakeBluez.h"

namespace wrixel2::platform::bluez {

using Events = std::vector<std::string>;
using Calls = std::vector<std::string>;

inline const std::string kHci0 = "/org/bluez/hci0";
inline const std::string kBandPath = kHci0 + "/dev_C0_01_02_03_04_05";
inline const std::string kTime = kBandPath + "/service0010/char0011";
inline const std::string kSteps = kBandPath + "/service0010/char0013";
inline const std::string kAuth = kBandPath + "/service0020/char0021";

/// A central manager over a bluetoothd that the test plays, on virtual time, with one adapter that
/// has power and a band below it that bluetoothd knows.
class BluezFixture : public testing::Test {
 protected:
  BluezFixture();
  ~BluezFixture() override;

  void makeManager(const std::vector<UUID>& storedIdentifiers = {},
                   const std::optional<std::string>& adapter = std::nullopt);
  void settle() { loop.runUntilIdle(); }
  void runFor(TimeInterval time) { loop.runFor(time); }
  /// Runs what is due; what the delegates were told since the last time.
  Events events();
  /// Runs what is due; the calls since the last time.
  Calls calls();

  static Dictionary band(const Dictionary& more = {});
  void placeGattObjects();
  /// The manager's object for the band, with the recorder as its delegate.
  std::shared_ptr<Peripheral> bandPeripheral();
  /// Makes the manager and connects the band; the records begin anew.
  void connect();
  /// And discovers everything.
  void discover();
  std::shared_ptr<Characteristic> characteristic(std::string_view uuid) const;

  simulated::SimulatedClock clock;
  simulated::SimulatedTimeZone zone;
  simulated::SimulatedRunLoop loop{clock, zone};
  simulated::RecordingLog log;
  FakeBluez bluez{loop};
  std::shared_ptr<EventRecorder> recorder = std::make_shared<EventRecorder>();
  std::unique_ptr<BluezRadio> radio;
  std::unique_ptr<CentralManager> manager;
  std::shared_ptr<Peripheral> peripheral;
};

}  // namespace wrixel2::platform::bluez
