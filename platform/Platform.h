#pragma once

#include "platform/CentralManager.h"
#include "platform/Clock.h"
#include "platform/Date.h"
#include "platform/FileManager.h"
#include "platform/HealthStore.h"
#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/NotificationCenter.h"
#include "platform/ObjectExporter.h"
#include "platform/PropertyLists.h"
#include "platform/RunLoop.h"
#include "platform/ServiceManager.h"
#include "platform/SystemInfo.h"
#include "platform/UserDefaults.h"

namespace wrixel2::platform {

/// The handle through which everything that touches the outside gets there. Each program makes one
/// from the backends it wants; all of them outlive whatever was given the handle, which is
/// therefore passed and kept by reference.
struct Platform {
  RunLoop& runLoop;
  const Clock& clock;
  const TimeZone& localTimeZone;
  Log& log;
  MessageCenters& messageCenters;
  DarwinNotifyCenter& darwinNotifyCenter;
  DistributedNotificationCenter& distributedNotificationCenter;
  ObjectExporter& objectExporter;
  BluetoothRadio& bluetoothRadio;
  HealthStore& healthStore;
  PropertyLists& propertyLists;
  UserDefaults& userDefaults;
  FileManager& fileManager;
  const SystemInfo& systemInfo;
  ServiceManager& serviceManager;
};

}  // namespace wrixel2::platform
