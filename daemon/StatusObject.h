#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/Log.h"
#include "platform/Platform.h"

namespace wrixel2::daemon {

/// What other programs may know of the daemon.
struct DaemonStatus {
  std::string state = "off";  ///< "off", "idle", "connecting", "connected" or "scanning"
  std::string band;           ///< MAC address, empty while no band is known
  bool initialized = false;   ///< the band is set up and takes requests
  std::string lockedTo;       ///< MAC address, or empty
  std::uint8_t battery = 0;   ///< per cent, 0 unknown
  std::uint32_t steps = 0;
  std::int64_t nextMeasurement = 0;  ///< Unix seconds, 0 none
  std::int64_t nextStepCheck = 0;    ///< Unix seconds, 0 none
  /// What the band said of the pairing key last: "accepted", "refused", or empty.
  std::string authentication;
  /// What keeps the band from being served, and so what to mend; empty: nothing known.
  std::string problem;

  friend bool operator==(const DaemonStatus&, const DaemonStatus&) = default;
};

/// Shows the daemon's status on the bus, and in one line to the service manager. Each property is
/// announced when it changes, and only then.
class StatusObject {
 public:
  /// Without the object on the bus (a warning) the service manager is still told.
  StatusObject(const platform::Platform& platform, const platform::Logger& logger);
  StatusObject(const StatusObject&) = delete;
  StatusObject& operator=(const StatusObject&) = delete;

  const DaemonStatus& status() const { return status_; }
  void setStatus(DaemonStatus status);

 private:
  platform::ServiceManager& serviceManager_;
  DaemonStatus status_;
  std::string line_;
  std::unique_ptr<platform::ExportedObject> object_;
};

}  // namespace wrixel2::daemon
