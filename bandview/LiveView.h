#pragma once

#include <memory>
#include <string>

#include "bandview/BandClient.h"
#include "bandview/Menu.h"
#include "bandview/NotificationServer.h"
#include "bandview/Terminal.h"
#include "bandview/UserActions.h"
#include "bandview/Vibration.h"
#include "bandview/View.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"
#include "platform/linux/SdBusDistributedNotificationCenter.h"

namespace wrixel2::bandview {

/// The band on the terminal, with a menu of keys, until the loop is stopped. It draws when
/// something happens; while the band vibrates also in between, and at each minute of the band's
/// clock.
class LiveView {
 public:
  /// All of them outlive the view.
  LiveView(platform::linux::LinuxRunLoop& loop, const platform::Clock& clock,
           platform::linux::BusConnection& bus, platform::Log& log);

  /// Takes the terminal over and follows the band. Fails with a sentence for the user.
  platform::ErrorOrNone start();

 private:
  void addEvent(std::string_view event);
  void perform(Action action);
  platform::ErrorOrNone carryOut(Action action);
  Menu menu() const;
  void bandChanged();
  void written(std::string_view characteristic, platform::ByteView value);
  void showDisplayed(const Displayed& displayed);
  void vibrate(unsigned on, unsigned off, unsigned count);
  void shake();
  void redrawSoon();
  void draw();

  platform::linux::LinuxRunLoop& loop_;
  const platform::Clock& clock_;
  platform::linux::BusConnection& bus_;
  platform::linux::BusService daemon_;
  platform::linux::SdBusDistributedNotificationCenter distributedCenter_;
  UserActions actions_;
  View view_;
  bool isCalling_ = false;
  platform::Bytes clockOfTimer_;  ///< what the band's clock showed when the timer was set
  Vibration vibration_;
  bool redrawPending_ = false;
  std::unique_ptr<Terminal> terminal_;
  std::unique_ptr<BandClient> band_;
  std::unique_ptr<NotificationServer> notifications_;
  std::unique_ptr<platform::Observation> measurements_;
  std::unique_ptr<platform::Timer> shakeTimer_;
  std::unique_ptr<platform::Timer> clockTimer_;
};

}  // namespace wrixel2::bandview
