#include "protocol/MBBLE/Services/MBAlertService.h"

#include <chrono>
#include <string>
#include <utility>

#include "platform/Platform.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::mbservices {

namespace {
constexpr std::int32_t kService = 0x1802;
constexpr std::int32_t kAlertLevel = 0x2A06;

constexpr std::uint64_t kIconThatOnlyVibrates = 1;
constexpr std::uint64_t kIconThatOnlyShows = 28;

/// What the band needs between an icon and its pattern, and between the two halves of a stop.
constexpr auto kIconPause = std::chrono::milliseconds(150);
constexpr auto kStopPause = std::chrono::milliseconds(50);

}  // namespace

MBAlertService::MBAlertService(const platform::Platform& platform,
                               const std::weak_ptr<BandPeripheral>& parent)
    : BandService(platform, MB_SERVICE_ALERT, parent, kService, "MBAlertService") {
  addCharacteristicWithAddress(std::string(MB_CHAR_ALERT), kAlertLevel);
}

void MBAlertService::writeVibrateServiceWithWork(const PayloadFiller& work,
                                                 bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_ALERT, work, std::move(block));
}

void MBAlertService::doSendNotificationWithMode(
    const std::shared_ptr<mbmodel::MBVibrateModel>& mode, float delay) {
  auto& loop = platform().runLoop;
  loop.mainQueue().after(platform::seconds(delay), [&loop, weak = weakSelf(*this), mode] {
    loop.globalQueue().async([weak, mode] {
      if (const auto self = weak.lock()) {
        self->sendNotification(mode);
      }
    });
  });
}

void MBAlertService::sendNotification(const std::shared_ptr<mbmodel::MBVibrateModel>& mode) {
  if (mode->iconId() == kIconThatOnlyVibrates) {
    writePatternOf(*mode);
    return;
  }
  writeLevel(static_cast<std::uint8_t>(mode->getIconValue()));
  if (mode->iconId() == kIconThatOnlyShows) {
    return;
  }
  platform().runLoop.globalQueue().after(kIconPause, [weak = weakSelf(*this), mode] {
    if (const auto self = weak.lock()) {
      self->writePatternOf(*mode);
    }
  });
}

void MBAlertService::doStopVibrate() {
  shouldStop_ = true;
  platform().runLoop.globalQueue().async([weak = weakSelf(*this)] {
    const auto self = weak.lock();
    if (!self) {
      return;
    }
    self->writeLevel(0);
    self->platform().runLoop.globalQueue().after(kStopPause, [weak] {
      if (const auto later = weak.lock()) {
        later->writePattern({}, 0);
      }
    });
  });
}

void MBAlertService::writeLevel(std::uint8_t level) {
  writeVibrateServiceWithWork(
      [level](mbmodel::MBDataBuilder& builder) { builder.writeInt(level, 1); }, nullptr);
}

void MBAlertService::writePatternOf(const mbmodel::MBVibrateModel& mode) {
  writePattern(mbmodel::MBVibrateModel::getPatternFromMode(mode.getVibModeValue()),
               static_cast<std::uint8_t>(mode.repeat()));
}

void MBAlertService::writePattern(mbmodel::VibrationPattern pattern, std::uint8_t count) {
  writeVibrateServiceWithWork(
      [pattern, count](mbmodel::MBDataBuilder& builder) {
        builder.writeVibrationPattern(pattern.vibrate, pattern.pause, count);
      },
      nullptr);
}

}  // namespace wrixel2::mbservices
