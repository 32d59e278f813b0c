#pragma once

#include <cstddef>
#include <memory>

#include "bench/Extent.h"
#include "bench/Report.h"
#include "bench/Session.h"

namespace wrixel2::bench {

/// What the shell companion passes on in a second, with a daemon and a notification service that
/// are played.
class CompanionBench {
 public:
  /// Loop and log are borrowed.
  CompanionBench(platform::linux::LinuxRunLoop& loop, platform::Log& log, const Programs& programs,
                 const Extent& extent, Report& report);

  /// From an app's Notify to the bulletin for the daemon, many at once.
  void measureNotifications();
  /// Heart rates, one after the other: each is on the disk when the next is sent.
  void measureHeartRates();

 private:
  void notify(std::size_t number);

  platform::Log& log_;
  const Extent& extent_;
  Report& report_;
  Session session_;
  platform::linux::SdBusMessageCenters centers_;
  std::unique_ptr<platform::MessageCenter> daemonCenter_;
  platform::linux::BusSlot notificationService_;
  std::unique_ptr<Process> companion_;
  std::size_t bulletins_ = 0;
};

}  // namespace wrixel2::bench
