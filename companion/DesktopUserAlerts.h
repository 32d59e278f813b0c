#pragma once

#include "companion/UserAlertPresenter.h"
#include "platform/Log.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// Shows alerts as desktop notifications (Desktop Notifications Specification 1.2).
class DesktopUserAlerts final : public UserAlertPresenter {
 public:
  /// Both outlive it.
  DesktopUserAlerts(platform::linux::BusConnection& bus, platform::Log& log)
      : bus_(bus), logger_(log, "UserAlerts") {}

  /// Does not wait. Where nothing shows notifications, the log says so, with the alert's title.
  void present(std::string_view title, std::string_view message) override;

 private:
  platform::linux::BusConnection& bus_;
  platform::Logger logger_;
};

}  // namespace wrixel2::companion
