#include "platform/simulated/VirtualLink.h"

#include <utility>

#include "band/VirtualBand.h"
#include "platform/simulated/SimulatedPeripheral.h"

namespace wrixel2::platform::simulated {

namespace {

Error errorOfCode(long code) {
  return {code, code == bluetooth_error::connectionTimeout ? "The link timed out"
                                                           : "The device has disconnected"};
}

}  // namespace

VirtualLink::VirtualLink(VirtualRadio& radio, std::shared_ptr<band::VirtualBand> band)
    : radio_(radio), band_(std::move(band)) {
  band_->setRadio(this);
}

VirtualLink::~VirtualLink() {
  band_->setRadio(nullptr);
  if (isUp_) {
    band_->linkDown();
  }
}

void VirtualLink::claim(SimulatedPeripheral* owner) {
  owner_ = owner;
  if (!isUp_) {
    isUp_ = true;
    session_ = std::make_shared<char>();
    band_->linkUp();
  }
}

void VirtualLink::takeDown() {
  isUp_ = false;
  owner_ = nullptr;
  session_.reset();
  operationTimer_.reset();
  supervisionTimer_.reset();
}

void VirtualLink::end(const ErrorOrNone& error) {
  if (!isUp_) {
    return;
  }
  SimulatedPeripheral* const owner = owner_;
  const std::deque<Operation> unanswered = std::exchange(operations_, {});
  takeDown();
  const Error failure =
      error.value_or(Error{bluetooth_error::notConnected, "The device is not connected"});
  for (const auto& operation : unanswered) {
    operation.perform(failure);
  }
  if (owner != nullptr) {
    owner->linkEnded(error);
  }
  band_->linkDown();
}

void VirtualLink::abandon() {
  operations_.clear();
  takeDown();
  band_->linkDown();
}

void VirtualLink::enqueue(Operation operation) {
  operations_.push_back(std::move(operation));
  startNext();
}

void VirtualLink::dropAtOperation(unsigned n, long code) { plannedDrop_ = PlannedDrop{n, code}; }

void VirtualLink::startNext() {
  if (operations_.empty() || operationTimer_ != nullptr || !band_->isInRange()) {
    return;
  }
  operationTimer_ = radio_.loop_.scheduledTimer(operations_.front().duration, false,
                                                [this] { finishOperation(); });
}

void VirtualLink::finishOperation() {
  operationTimer_.reset();
  if (!band_->isInRange()) {
    // Tried again when the band is back, unless the link times out first.
    return;
  }
  if (plannedDrop_ && --plannedDrop_->operationsLeft == 0) {
    const long code = plannedDrop_->code;
    plannedDrop_.reset();
    end(errorOfCode(code));
    return;
  }
  const Operation operation = std::move(operations_.front());
  operations_.pop_front();
  operation.perform(operation.kind ? radio_.takePlannedFailure(*operation.kind, operation.on)
                                   : std::nullopt);
  startNext();
}

Task VirtualLink::whileUp(Task task) {
  return [session = std::weak_ptr<void>(session_), task = std::move(task)] {
    if (!session.expired()) {
      task();
    }
  };
}

void VirtualLink::notify(const UUID& service, const UUID& characteristic, const Bytes& value) {
  radio_.loop_.postAfter(radio_.timings.notification,
                         whileUp([this, service, characteristic, value] {
                           // One that comes to nobody's ears is lost.
                           if (owner_ != nullptr && band_->isInRange()) {
                             owner_->receiveNotification(service, characteristic, value);
                           }
                         }));
}

ErrorOrNone VirtualLink::endLink(long code) {
  // In a turn of its own: the band may be in the middle of an operation, which is answered first.
  radio_.loop_.post(whileUp([this, code] { end(errorOfCode(code)); }));
  return std::nullopt;
}

void VirtualLink::presenceChanged() {
  if (band_->isInRange()) {
    supervisionTimer_.reset();
    startNext();
  } else if (isUp_ && supervisionTimer_ == nullptr) {
    supervisionTimer_ = radio_.loop_.scheduledTimer(
        radio_.timings.supervisionTimeout, false,
        [this] { end(errorOfCode(bluetooth_error::connectionTimeout)); });
  }
  radio_.airChanged();
}

}  // namespace wrixel2::platform::simulated
