#pragma once

#include <memory>

#include "protocol/MBBLE/Services/BandService.h"

namespace wrixel2::mbmodel {
class MBVibrateModel;
struct VibrationPattern;
}  // namespace wrixel2::mbmodel

namespace wrixel2::mbservices {

/// The immediate-alert service: shows an icon and vibrates. No write of it is acknowledged.
class MBAlertService final : public BandService {
 public:
  MBAlertService(const platform::Platform& platform, const std::weak_ptr<BandPeripheral>& parent);

  /// Whether alerts that repeat were told to stop.
  bool shouldStop() const { return shouldStop_; }
  void setShouldStop(bool shouldStop) { shouldStop_ = shouldStop; }

  void writeVibrateServiceWithWork(const PayloadFiller& work, bleobjects::ErrorCallback block);

  /// After so many seconds shows the mode's icon, as it is by then, and 0.15 s later plays its
  /// pattern. Icon 1 only vibrates; icon 28 only shows.
  void doSendNotificationWithMode(const std::shared_ptr<mbmodel::MBVibrateModel>& mode,
                                  float delay);
  /// Ends what is playing.
  void doStopVibrate();

 private:
  void sendNotification(const std::shared_ptr<mbmodel::MBVibrateModel>& mode);
  void writeLevel(std::uint8_t level);
  void writePatternOf(const mbmodel::MBVibrateModel& mode);
  void writePattern(mbmodel::VibrationPattern pattern, std::uint8_t count);

  bool shouldStop_ = false;
};

}  // namespace wrixel2::mbservices
