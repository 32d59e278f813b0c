#include "protocol/MBBLE/Services/MBAncsAlertService.h"

#include <string>
#include <utility>

#include "platform/Platform.h"
#include "protocol/MBBLE/Services/MBServiceKeys.h"
#include "protocol/MBBLE/Services/WeakSelf.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::mbservices {

namespace {
constexpr std::int32_t kService = 0x1811;
constexpr std::int32_t kNewAlert = 0x2A46;
constexpr std::int32_t kControlPoint = 0x2A44;

/// The icons that the band shows together with a text.
bool takesText(std::uint64_t icon) { return icon == 9 || icon == 29; }
}  // namespace

MBAncsAlertService::MBAncsAlertService(const platform::Platform& platform,
                                       const std::weak_ptr<BandPeripheral>& parent)
    : BandService(platform, MB_SERVICE_ANCS_ALERT, parent, kService, "MBAncsAlertService") {
  addCharacteristicWithAddress(std::string(MB_CHAR_ANCS_ALERT), kNewAlert);
  addCharacteristicWithAddress(std::string(MB_CHAR_ANCS_ALERT_CONTROL), kControlPoint);
}

void MBAncsAlertService::writeVibrateServiceWithWork(const PayloadFiller& work,
                                                     bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_ANCS_ALERT, work, std::move(block));
}

void MBAncsAlertService::writeControlServiceWithWork(const PayloadFiller& work,
                                                     bleobjects::ErrorCallback block) {
  writePayload(MB_CHAR_ANCS_ALERT_CONTROL, work, std::move(block));
}

void MBAncsAlertService::doSendNotificationWithMode(
    const std::shared_ptr<mbmodel::MBVibrateModel>& mode, float delay,
    bleobjects::ErrorCallback block) {
  auto& loop = platform().runLoop;
  std::optional<platform::Bytes> text;
  if (mode->text()) {
    text = platform::bytesOfText(*mode->text());
  }
  auto send = [weak = weakSelf(*this), mode, text = std::move(text),
               block = std::move(block)]() mutable {
    if (const auto self = weak.lock()) {
      self->sendNotification(*mode, text, std::move(block));
    }
  };
  loop.mainQueue().after(platform::seconds(delay),
                         [&loop, send = platform::Task(std::move(send))]() mutable {
                           loop.globalQueue().async(std::move(send));
                         });
}

void MBAncsAlertService::sendNotification(const mbmodel::MBVibrateModel& mode,
                                          const std::optional<platform::Bytes>& text,
                                          bleobjects::ErrorCallback block) {
  writeVibrateServiceWithWork(
      [&mode, &text](mbmodel::MBDataBuilder& builder) {
        if (text && takesText(mode.iconId())) {
          // The builder cuts by bytes: a character that does not fit as a whole is sent in part,
          // deliberately, as the band leaves out what it cannot show.
          builder.writeInt(mode.getIconValue(), 2).writeDisplayText(*text, text->size());
        } else {
          builder.writeInt(mode.getIconValue(), 3);
        }
      },
      std::move(block));
}

}  // namespace wrixel2::mbservices
