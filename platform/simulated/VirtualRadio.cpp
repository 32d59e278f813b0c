#include "platform/simulated/VirtualRadio.h"

#include <algorithm>
#include <utility>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"
#include "platform/simulated/SimulatedCentralManager.h"
#include "platform/simulated/SimulatedPeripheral.h"
#include "platform/simulated/VirtualLink.h"

namespace wrixel2::platform::simulated {

VirtualRadio::VirtualRadio(RunLoop& loop) : loop_(loop) {}

VirtualRadio::~VirtualRadio() = default;

std::unique_ptr<CentralManager> VirtualRadio::makeCentralManager(
    std::weak_ptr<CentralManagerDelegate> delegate, Queue queue,
    const std::vector<UUID>& /*storedIdentifiers*/) {
  return std::make_unique<SimulatedCentralManager>(*this, std::move(delegate), std::move(queue));
}

void VirtualRadio::addBand(std::shared_ptr<band::VirtualBand> band) {
  links_.push_back(std::make_unique<VirtualLink>(*this, std::move(band)));
  airChanged();
}

UUID VirtualRadio::identifierOf(const band::VirtualBand& band) {
  static const UUID nameSpace = UUID::withString("6f1f3a0e-7c52-4c0b-9d2e-3b8a5e0c7d41");
  return UUID::version5(nameSpace, band.address());
}

VirtualLink* VirtualRadio::linkOf(const band::VirtualBand& band) const {
  const auto found =
      std::ranges::find_if(links_, [&band](const auto& link) { return &link->band() == &band; });
  return found == links_.end() ? nullptr : found->get();
}

void VirtualRadio::setState(CentralState state) {
  if (state == state_) {
    return;
  }
  const bool isLeavingPoweredOn = state_ == CentralState::poweredOn;
  state_ = state;
  if (isLeavingPoweredOn) {
    for (const auto& link : links_) {
      link->end(std::nullopt);
    }
    for (SimulatedCentralManager* const manager : managers_) {
      manager->radioLost();
    }
  }
  for (SimulatedCentralManager* const manager : managers_) {
    manager->reportState(state);
  }
}

void VirtualRadio::connectBySomebodyElse(band::VirtualBand& band) {
  VirtualLink* const link = linkOf(band);
  if (link != nullptr && !link->isUp() && band.isInRange()) {
    link->claim(nullptr);
  }
}

void VirtualRadio::failNextConnect(Error error) { connectFailure_ = std::move(error); }

std::optional<Error> VirtualRadio::takeConnectFailure() {
  return std::exchange(connectFailure_, std::nullopt);
}

void VirtualRadio::failNext(RadioOperation operation, Error error, std::optional<UUID> on) {
  failures_.push_back({operation, std::move(error), on});
}

std::optional<Error> VirtualRadio::takePlannedFailure(RadioOperation operation, const UUID& on) {
  const auto planned = std::ranges::find_if(failures_, [&](const PlannedFailure& failure) {
    return failure.operation == operation && (!failure.on || *failure.on == on);
  });
  if (planned == failures_.end()) {
    return std::nullopt;
  }
  Error error = std::move(planned->error);
  failures_.erase(planned);
  return error;
}

void VirtualRadio::dropAtOperation(band::VirtualBand& band, unsigned n, long code) {
  if (VirtualLink* const link = linkOf(band)) {
    link->dropAtOperation(std::max(n, 1U), code);
  }
}

void VirtualRadio::injectNotification(band::VirtualBand& band, const UUID& characteristic,
                                      const Bytes& value) {
  VirtualLink* const link = linkOf(band);
  if (link == nullptr || link->owner() == nullptr) {
    return;
  }
  for (const auto& service : band::bandServices()) {
    if (band::findCharacteristic(service.uuid, characteristic) != nullptr) {
      link->owner()->receiveNotification(service.uuid, characteristic, value);
    }
  }
}

void VirtualRadio::airChanged() {
  if (state_ != CentralState::poweredOn) {
    return;
  }
  for (SimulatedCentralManager* const manager : managers_) {
    manager->airChanged();
  }
}

}  // namespace wrixel2::platform::simulated
