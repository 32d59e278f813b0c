#include "platform/simulated/SimulatedCharacteristic.h"

#include "band/BandProfile.h"
#include "platform/simulated/SimulatedService.h"

namespace wrixel2::platform::simulated {

namespace {

/// Client Characteristic Configuration (Core Specification Vol 3, Part G, 3.3.3.3).
constexpr UUID kClientConfiguration = band::shortUUID(0x2902);

}  // namespace

std::shared_ptr<Service> SimulatedCharacteristic::service() const { return service_.lock(); }

void SimulatedCharacteristic::findDescriptors() {
  if (canNotify_ && descriptors_.empty()) {
    descriptors_.push_back(std::make_shared<SimulatedDescriptor>(kClientConfiguration));
  }
}

void SimulatedCharacteristic::detach() {
  service_.reset();
  isNotifying_ = false;
}

}  // namespace wrixel2::platform::simulated
