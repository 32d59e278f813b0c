#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/Platform.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxHealthStore.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/PropertyListUserDefaults.h"
#include "platform/linux/SdBusDarwinNotifyCenter.h"
#include "platform/linux/SdBusDistributedNotificationCenter.h"
#include "platform/linux/SdBusMessageCenters.h"
#include "platform/linux/SdBusObjectExporter.h"
#include "platform/linux/SystemdServiceManager.h"

namespace wrixel2::platform::linux {

enum class LogTarget : std::uint8_t { systemLog, standardError };

/// Where the machine has what the program reads and keeps.
struct LinuxPaths {
  std::string lockFile;
  std::string userDefaults;
  std::string infoPlist;
  std::string healthDatabase;

  /// Of the XDG base directories ($XDG_STATE_HOME and $XDG_DATA_HOME, else those of the home
  /// directory); with a root, the phone's own absolute paths below it. Fails without a home.
  static Result<LinuxPaths> standard(const std::optional<std::string>& root);
};

struct LinuxPlatformOptions {
  std::string tag = "wrixel2d";  ///< the program's name in the log
  LogTarget logTarget = LogTarget::systemLog;
  bool showsPrivate = false;
  std::optional<std::string> root;
  std::string systemVersion = "9.0";
  /// The bus name of the program whose postings are believed, and with which this one takes those
  /// of others by method. Empty: observers get this program's own alone.
  std::string publisher;
};

/// All real backends of one program but the radio, over one connection to the session bus.
class LinuxPlatform {
 public:
  /// Fails, with a sentence for the user, without a session bus or home directory.
  static Result<std::unique_ptr<LinuxPlatform>> create(const LinuxPlatformOptions& options);

  LinuxPlatform(const LinuxPlatform&) = delete;
  LinuxPlatform& operator=(const LinuxPlatform&) = delete;

  /// The handle for the program's own classes; the radio and this object outlive them.
  Platform platform(BluetoothRadio& radio);

  LinuxRunLoop& runLoop() { return runLoop_; }
  const LinuxPaths& paths() const { return paths_; }
  const SystemInfo& systemInfo() const { return systemInfo_; }
  Log& log() { return *log_; }
  BusConnection& sessionBus() { return *sessionBus_; }
  FileManager& fileManager() { return files_; }
  PropertyLists& propertyLists() { return propertyLists_; }
  ObjectExporter& objectExporter() { return *objectExporter_; }
  const Clock& clock() const { return clock_; }
  MessageCenters& messageCenters() { return *messageCenters_; }
  DarwinNotifyCenter& darwinNotifyCenter() { return *darwinNotifyCenter_; }
  /// Called once, after a line in the log, when the session bus is gone. Unless set, the loop is
  /// stopped with status 1.
  void onSessionBusLost(Task callback) { sessionBusLost_ = std::move(callback); }

 private:
  LinuxPlatform(const LinuxPlatformOptions& options, LinuxPaths paths);
  ErrorOrNone connect(std::unique_ptr<BusConnection> sessionBus, const std::string& publisher);

  // Members are destroyed from the last to the first: what uses the loop and the bus goes first.
  std::unique_ptr<Log> log_;
  LinuxPaths paths_;
  LinuxClock clock_;
  LocalTimeZone zone_;
  LinuxRunLoop runLoop_;
  LinuxFileManager files_;
  LinuxPropertyLists propertyLists_;
  PropertyListUserDefaults userDefaults_;
  LinuxHealthStore healthStore_;
  SystemdServiceManager serviceManager_;
  SystemInfo systemInfo_;
  Task sessionBusLost_;
  std::unique_ptr<BusConnection> sessionBus_;
  std::unique_ptr<SdBusMessageCenters> messageCenters_;
  std::unique_ptr<BusService> publisher_;
  std::unique_ptr<SdBusDarwinNotifyCenter> darwinNotifyCenter_;
  std::unique_ptr<SdBusDistributedNotificationCenter> distributedNotificationCenter_;
  std::unique_ptr<SdBusObjectExporter> objectExporter_;
};

}  // namespace wrixel2::platform::linux
