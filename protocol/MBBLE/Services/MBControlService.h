#pragma once

#include <memory>
#include <optional>

#include "platform/Date.h"
#include "platform/MessageCenter.h"
#include "platform/RunLoop.h"
#include "protocol/MBBLE/Services/BandService.h"

namespace wrixel2::mbmodel {
class MBActivityModel;
class MBBatteryInfoModel;
class MBLEParamsModel;
}  // namespace wrixel2::mbmodel

namespace wrixel2::mbservices {

/// The band maker's own service: link parameters, step counter, battery, clock and button.
class MBControlService final : public BandService {
 public:
  using RealtimeStepsCallback = platform::UniqueFunction<void(
      const std::optional<mbmodel::MBActivityModel>& activity, const platform::ErrorOrNone&)>;
  /// After an error the record says nothing.
  using BatteryInfoCallback = platform::UniqueFunction<void(
      const std::optional<mbmodel::MBBatteryInfoModel>& info, const platform::ErrorOrNone&)>;
  using TimeCallback = platform::UniqueFunction<void(const std::optional<platform::Date>& date,
                                                     const platform::ErrorOrNone&)>;
  using LEParamsCallback = platform::UniqueFunction<void(
      const std::optional<mbmodel::MBLEParamsModel>& params, const platform::ErrorOrNone&)>;

  MBControlService(const platform::Platform& platform, const std::weak_ptr<BandPeripheral>& parent);
  ~MBControlService() override;

  /// Long intervals (575 to 625 ms), for a link that only has to stay up.
  void writeHighLEParams();
  /// Short intervals (48.75 to 61.25 ms), for alerts that come at once.
  void writeLowLEParams();
  /// Shorter ones still (31.25 to 50 ms), for measured values.
  void writeHrLEParams();
  void writeLEParams(const mbmodel::MBLEParamsModel& params);
  void readLEParamsWithBlock(LEParamsCallback block);
  /// Writes the low parameters if the band is still without them; the completion is called before
  /// this returns, and before the band counts as having them.
  void checkAndSetLowLEParamsWithBlock(platform::Task block);

  // Each of the three reads has one pending completion, called at most once: a new request drops
  // the one before it.

  /// Whatever counters come next answer it, also notified ones.
  void readReatimeStepsWithBlock(RealtimeStepsCallback block);
  /// The pending completion, which is then the caller's to call.
  RealtimeStepsCallback takeRealtimeStepsCallback();
  void readBatteryInfoWithBlock(BatteryInfoCallback block);
  void readTimetWithBlock(TimeCallback block);

  /// No date writes the band's mark for a missing one.
  void writeTime(const std::optional<platform::Date>& date, bleobjects::ErrorCallback block);
  void writeTimetWithWork(const PayloadFiller& work, bleobjects::ErrorCallback block);

  void notifyCharacteristicHandler(
      const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
      const platform::ErrorOrNone& error) override;

 private:
  void handleMBRealtimeSteps(const std::optional<platform::Bytes>& value,
                             const platform::ErrorOrNone& error);
  void handleMBBatteryInfo(const std::optional<platform::Bytes>& value,
                           const platform::ErrorOrNone& error);
  void handleTime(const std::optional<platform::Bytes>& value, const platform::ErrorOrNone& error);
  void handleButtonPress();
  void handleLeParamChange(const std::optional<platform::Bytes>& value);

  std::unique_ptr<platform::MessageCenter> shellCompanion_;
  RealtimeStepsCallback realtimeStepsCallback_;
  BatteryInfoCallback batteryInfoCallback_;
  TimeCallback timeCallback_;
};

}  // namespace wrixel2::mbservices
