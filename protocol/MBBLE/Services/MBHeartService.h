#pragma once

#include <cstdint>
#include <memory>

#include "protocol/MBBLE/Services/BandService.h"

namespace wrixel2::mbservices {

/// Asks the band for heart-rate measurements, and hands what it measures to the session manager and
/// to whoever observes "org.corvale.wrixel2.measure". A failed measurement is repeated once.
class MBHeartService final : public BandService {
 public:
  MBHeartService(const platform::Platform& platform, const std::weak_ptr<BandPeripheral>& parent);

  /// A failed measurement is being repeated.
  bool isRetryActive() const { return retryActive_; }
  /// Kept for the interface; measuring does not call it.
  const bleobjects::ErrorCallback& heartRateHandler() const { return heartRateHandler_; }
  void setHeartRateHandler(bleobjects::ErrorCallback handler);

  /// Mode 2 measures until it is told to stop, every other mode once.
  void doRequestHeartRate(std::int64_t mode, bleobjects::ErrorCallback block);
  void writeRequestWithWork(const PayloadFiller& work, bleobjects::ErrorCallback block);

  void notifyCharacteristicHandler(
      const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
      const platform::ErrorOrNone& error) override;

 private:
  void handleHeartRate(SessionManager& session, std::uint8_t rate);

  bool retryActive_ = false;
  bleobjects::ErrorCallback heartRateHandler_;
};

}  // namespace wrixel2::mbservices
