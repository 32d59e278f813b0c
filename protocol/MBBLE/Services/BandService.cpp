#include "protocol/MBBLE/Services/BandService.h"

#include <string>
#include <utility>

#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/MBBLE/Services/BandPeripheral.h"
#include "protocol/MBModel/MBDataBuilder.h"

namespace wrixel2::mbservices {

BandService::BandService(const platform::Platform& platform, std::string_view name,
                         const std::weak_ptr<BandPeripheral>& parent, std::int32_t number,
                         std::string_view module)
    : YMSCBService(platform, std::string(name), parent, 0, 0, bleobjects::ServiceOffset{number}),
      logger_(platform.log, module) {}

std::shared_ptr<BandPeripheral> BandService::band() const {
  return std::static_pointer_cast<BandPeripheral>(parent());
}

std::shared_ptr<SessionManager> BandService::sessionManager() const {
  const auto owner = band();
  return owner ? owner->sessionManager() : nullptr;
}

void BandService::writePayload(std::string_view key, const PayloadFiller& work,
                               bleobjects::ErrorCallback block) {
  mbmodel::MBDataBuilder builder;
  work(builder);
  (*this)[key]->writeValue(builder.data(), std::move(block));
}

}  // namespace wrixel2::mbservices
