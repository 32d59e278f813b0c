#pragma once

#include <memory>
#include <optional>

#include "protocol/MBBLE/Services/BandService.h"

namespace wrixel2::mbmodel {
class MBVibrateModel;
}

namespace wrixel2::mbservices {

/// The alert-notification service: shows an icon, and the text of a call or message.
class MBAncsAlertService final : public BandService {
 public:
  MBAncsAlertService(const platform::Platform& platform,
                     const std::weak_ptr<BandPeripheral>& parent);

  /// Whether alerts that repeat were told to stop; whoever repeats them looks at it.
  bool shouldStop() const { return shouldStop_; }
  void setShouldStop(bool shouldStop) { shouldStop_ = shouldStop; }

  void writeVibrateServiceWithWork(const PayloadFiller& work, bleobjects::ErrorCallback block);
  void writeControlServiceWithWork(const PayloadFiller& work, bleobjects::ErrorCallback block);

  /// After so many seconds shows the mode as it is by then, with the text that it had at the call.
  /// Text is shown with icons 9 and 29 only, and only 18 bytes of it.
  void doSendNotificationWithMode(const std::shared_ptr<mbmodel::MBVibrateModel>& mode, float delay,
                                  bleobjects::ErrorCallback block);
  /// Sends nothing.
  void doStopVibrate() { shouldStop_ = true; }

 private:
  void sendNotification(const mbmodel::MBVibrateModel& mode,
                        const std::optional<platform::Bytes>& text,
                        bleobjects::ErrorCallback block);

  bool shouldStop_ = false;
};

}  // namespace wrixel2::mbservices
