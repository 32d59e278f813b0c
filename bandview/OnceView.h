#pragma once

#include <memory>
#include <string>

#include "bandview/BandClient.h"
#include "bandview/NotificationServer.h"
#include "bandview/Timeline.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"

namespace wrixel2::bandview {

/// Follows one notification to the wrist, and stops the loop: with status 0 when the band has shown
/// its text, after printing when each stage came; with 1 after half a minute, saying which stage
/// did not.
class OnceView {
 public:
  static constexpr platform::TimeInterval kLimit = platform::seconds(30);

  /// All of them outlive the view.
  OnceView(platform::linux::LinuxRunLoop& loop, const platform::Clock& clock,
           platform::linux::BusConnection& bus)
      : loop_(loop), clock_(clock), bus_(bus) {}

  platform::ErrorOrNone start();

 private:
  void notified(const NotificationServer::Notification& notification);
  void note(Stage stage);
  void timeIsOver();

  platform::linux::LinuxRunLoop& loop_;
  const platform::Clock& clock_;
  platform::linux::BusConnection& bus_;
  Timeline timeline_;
  std::unique_ptr<BandClient> band_;
  std::unique_ptr<NotificationServer> notifications_;
  std::unique_ptr<platform::Timer> limit_;
};

}  // namespace wrixel2::bandview
