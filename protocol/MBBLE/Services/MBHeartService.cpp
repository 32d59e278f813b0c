#include "protocol/MBBLE/Services/MBHeartService.h"

#include <chrono>
#include <string>
#include <utility>

#include <fmt/format.h>

#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/BandPeripheral.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/SessionManager.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBDataBuilder.h"

namespace wrixel2::mbservices {

namespace {
// Bluetooth assigned numbers: heart rate service, control point, measurement.
constexpr std::int32_t kService = 0x180D;
constexpr std::int32_t kControlPoint = 0x2A39;
constexpr std::int32_t kMeasurement = 0x2A37;

constexpr std::int64_t kContinuousMode = 2;
constexpr std::int64_t kSameModeAgain = 3;
/// Flags, which are not interpreted, and the rate.
constexpr std::size_t kMeasurementLength = 2;
constexpr auto kRetryDelay = std::chrono::seconds(5);
}  // namespace

MBHeartService::MBHeartService(const platform::Platform& platform,
                               const std::weak_ptr<BandPeripheral>& parent)
    : BandService(platform, MB_SERVICE_HEART, parent, kService, "MBHeartService") {
  addCharacteristicWithAddress(std::string(MB_CHAR_HEART_CONTROL), kControlPoint);
  addCharacteristicWithAddress(std::string(MB_CHAR_HEART_NOTIFY), kMeasurement);
}

void MBHeartService::setHeartRateHandler(bleobjects::ErrorCallback handler) {
  heartRateHandler_ = std::move(handler);
}

void MBHeartService::doRequestHeartRate(std::int64_t mode, bleobjects::ErrorCallback block) {
  writeRequestWithWork(
      [mode](mbmodel::MBDataBuilder& builder) {
        builder.writeInt(0x15, 1).writeInt(mode == kContinuousMode ? 0x01 : 0x02, 1).writeInt(1, 1);
      },
      std::move(block));
}

void MBHeartService::writeRequestWithWork(const PayloadFiller& work,
                                          bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_HEART_CONTROL, work, std::move(block));
}

void MBHeartService::notifyCharacteristicHandler(
    const std::shared_ptr<bleobjects::YMSCBCharacteristic>& characteristic,
    const platform::ErrorOrNone& error) {
  if (error || !characteristic || !characteristic->cbCharacteristic() || !characteristic->value()) {
    logger().warning(fmt::format("Error during notify handling. {}", platform::description(error)));
    return;
  }
  if (characteristic->name() != MB_CHAR_HEART_NOTIFY) {
    logger().warning(
        fmt::format("WARN: No notify handler or faulty data for {}", characteristic->name()));
    return;
  }
  const auto session = sessionManager();
  if (!session) {
    return;
  }
  // A measurement that ends in faulty data has ended all the same.
  session->setHeartRateActive(false);
  session->setHeartRateRequested(false);
  const auto& value = *characteristic->value();
  if (value.size() != kMeasurementLength) {
    logger().warning(
        fmt::format("WARN: Faulty HR data for {} len {}", characteristic->name(), value.size()));
    return;
  }
  handleHeartRate(*session, value[1]);
}

void MBHeartService::handleHeartRate(SessionManager& session, std::uint8_t rate) {
  session.writeHeartRate(rate);
  session.sendAlertToPeripheralsWithMode(nullptr);
  logger().info(fmt::format("Heart rate: {}", rate));
  // A band that is not worn tightly reads 0 now and then: one more try, and then 0 it is.
  retryActive_ = rate == 0 && !retryActive_;
  if (retryActive_) {
    platform().runLoop.mainQueue().after(kRetryDelay, [weak = weakSelf(*this)] {
      const auto self = weak.lock();
      if (const auto manager = self ? self->sessionManager() : nullptr) {
        manager->requestHeartRequestWithMode(kSameModeAgain);
      }
    });
  }
  platform().distributedNotificationCenter.post(
      {"org.corvale.wrixel2.measure", std::nullopt, {{"heartRate", int{rate}}}});
}

}  // namespace wrixel2::mbservices
