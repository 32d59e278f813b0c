#pragma once

#include "platform/Platform.h"
#include "platform/simulated/RecordingLog.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedFileManager.h"
#include "platform/simulated/SimulatedHealthStore.h"
#include "platform/simulated/SimulatedMessageCenters.h"
#include "platform/simulated/SimulatedNotificationCenters.h"
#include "platform/simulated/SimulatedObjectExporter.h"
#include "platform/simulated/SimulatedPropertyLists.h"
#include "platform/simulated/SimulatedRunLoop.h"
#include "platform/simulated/SimulatedServiceManager.h"
#include "platform/simulated/SimulatedTimeZone.h"
#include "platform/simulated/SimulatedUserDefaults.h"
#include "platform/simulated/VirtualRadio.h"

namespace wrixel2::platform::simulated {

/// A whole platform on virtual time: make one per test, give its handle to what is tested, and
/// reach into the members to play the rest of the world. What was given the handle must be
/// destroyed before it.
class SimulatedPlatform {
 public:
  /// With its own virtual radio, or with another one that is borrowed.
  explicit SimulatedPlatform(BluetoothRadio* otherRadio = nullptr)
      : platform_{runLoop,
                  clock,
                  timeZone,
                  log,
                  messageCenters,
                  darwinNotifyCenter,
                  distributedNotificationCenter,
                  objectExporter,
                  otherRadio == nullptr ? static_cast<BluetoothRadio&>(radio) : *otherRadio,
                  healthStore,
                  propertyLists,
                  userDefaults,
                  fileManager,
                  systemInfo,
                  serviceManager} {}
  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;
  /// Pending work goes first: what it owns may still use the rest.
  ~SimulatedPlatform() { runLoop.discardWork(); }

  const Platform& handle() const { return platform_; }

  SimulatedClock clock;
  SimulatedTimeZone timeZone;
  RecordingLog log;
  SimulatedFileManager fileManager;
  SimulatedPropertyLists propertyLists{fileManager};
  SimulatedUserDefaults userDefaults;
  SimulatedHealthStore healthStore;
  SimulatedServiceManager serviceManager;
  SystemInfo systemInfo{"9.0", "/var/mobile/Library/Preferences/org.corvale.wrixel2.lock.plist",
                        "/System/Library/CoreServices/SpringBoard.app/Info.plist"};
  SimulatedObjectExporter objectExporter;
  SimulatedRunLoop runLoop{clock, timeZone};
  SimulatedMessageCenters messageCenters{runLoop, clock};
  SimulatedDarwinNotifyCenter darwinNotifyCenter{runLoop};
  SimulatedDistributedNotificationCenter distributedNotificationCenter{runLoop};
  VirtualRadio radio{runLoop};

 private:
  Platform platform_;
};

}  // namespace wrixel2::platform::simulated
