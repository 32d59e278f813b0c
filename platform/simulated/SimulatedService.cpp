#include "platform/simulated/SimulatedService.h"

#include <algorithm>

#include "band/BandProfile.h"

namespace wrixel2::platform::simulated {

void SimulatedService::findCharacteristics(const std::optional<std::vector<UUID>>& wanted) {
  for (const auto& service : band::bandServices()) {
    if (service.uuid != uuid_) {
      continue;
    }
    for (const auto& offered : service.characteristics) {
      const bool isWanted = !wanted || std::ranges::find(*wanted, offered.uuid) != wanted->end();
      if (isWanted && characteristic(offered.uuid) == nullptr) {
        const bool canNotify = (offered.properties & band::characteristic_property::notify) != 0;
        characteristics_.push_back(
            std::make_shared<SimulatedCharacteristic>(offered.uuid, canNotify, shared_from_this()));
      }
    }
  }
}

std::shared_ptr<SimulatedCharacteristic> SimulatedService::characteristic(const UUID& uuid) const {
  const auto found = std::ranges::find_if(
      characteristics_, [&uuid](const auto& entry) { return entry->uuid() == uuid; });
  return found == characteristics_.end() ? nullptr : *found;
}

void SimulatedService::detach() {
  isDetached_ = true;
  for (const auto& characteristic : characteristics_) {
    characteristic->detach();
  }
}

}  // namespace wrixel2::platform::simulated
