#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "bench/Process.h"
#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/linux/BusConnection.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/SdBusMessageCenters.h"
#include "tests/platform/linux/PrivateBus.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::bench {

inline constexpr std::string_view kDaemonCenter = "org.corvale.wrixel2dIpc";
inline constexpr std::string_view kCompanionCenter = "org.corvale.wrixel2Ipc";

/// Prints the line and ends the program: a measurement that cannot be made is not left out.
[[noreturn]] void giveUp(const std::string& what);

/// A connection to the bus of that address; gives up where there is none.
std::unique_ptr<platform::linux::BusConnection> openBus(platform::linux::LinuxRunLoop& loop,
                                                        const std::string& address);

/// A phone's session for the programs under measurement: a message bus and fresh directories.
class Session {
 public:
  /// Loop and log are borrowed.
  Session(platform::linux::LinuxRunLoop& loop, platform::Log& log);
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /// Plays the shell companion: every band setting at its default but these.
  void serveSettings(platform::Dictionary settings);

  /// Serves the loop until the program has the name. Programs find the system bus at the address;
  /// there is none unless it is given.
  std::unique_ptr<Process> start(std::vector<std::string> arguments, const std::string& name,
                                 const std::string& systemBusAddress = {});
  /// Serves the loop until the condition holds, and gives up after 20 seconds.
  void waitUntil(std::string_view what, const std::function<bool()>& condition);
  void waitFor(platform::TimeInterval time);

  /// A message to a center of the name, which nobody answers.
  void tell(const platform::linux::BusAddress& center, std::string_view message,
            const platform::Dictionary& userInfo);

  platform::linux::LinuxRunLoop& loop() { return loop_; }
  platform::linux::BusConnection& bus() { return *bus_; }
  const std::string& address() const { return privateBus_.address(); }

 private:
  platform::linux::LinuxRunLoop& loop_;
  platform::linux::TemporaryDirectory directory_;
  platform::linux::PrivateBus privateBus_;
  std::unique_ptr<platform::linux::BusConnection> bus_;
  platform::linux::SdBusMessageCenters centers_;
  std::unique_ptr<platform::MessageCenter> companionCenter_;
};

/// The address of a message center of the name.
platform::linux::BusAddress centerAddress(std::string_view name);

}  // namespace wrixel2::bench
