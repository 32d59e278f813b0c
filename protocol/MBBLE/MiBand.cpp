#include "protocol/MBBLE/MiBand.h"

#include <utility>

#include "protocol/MBBLE/MBCentralManager.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::mbble {

using mbmodel::MBVibrateModel;

MiBand::MiBand(const platform::Platform& platform, mbservices::KeyProvider& keyProvider)
    : MiBand(platform, nullptr) {
  manager_ = MBCentralManager::initSharedManagerWithDelegate(platform, keyProvider, self_);
}

MiBand::MiBand(const platform::Platform& platform, std::shared_ptr<MBCentralManager> manager)
    : platform_(platform),
      self_(this, [](MiBand*) {}),
      manager_(std::move(manager)),
      mode_(std::make_shared<MBVibrateModel>(1, 9, 0, std::nullopt)) {}

MiBand::~MiBand() = default;

void MiBand::notifyMiWithRepeat(std::uint64_t repeat, std::uint64_t icon, std::uint64_t pattern,
                                std::optional<std::string> text) {
  if (icon == 0) {
    return;
  }
  mode_ = std::make_shared<MBVibrateModel>(repeat, icon, pattern, std::move(text));
  manager_->sendAlertToPeripheralsWithMode(mode_);
}

void MiBand::stopVibration() { manager_->stopVibration(); }

void MiBand::sendHeartRequestWithMode(std::int64_t mode) {
  manager_->requestHeartRequestWithMode(mode);
}

void MiBand::requestSteps() { manager_->requestSteps(); }

void MiBand::getBatteryInfo() { manager_->getBatteryInfo(); }

void MiBand::setDateTime(platform::Date date) { manager_->setDateTime(date); }

void MiBand::syncClock() { manager_->syncClock(); }

void MiBand::authenticateAnew() { manager_->authenticateAnew(); }

void MiBand::scanForMi() {
  manager_->initialConnectionRequest([] {});
}

void MiBand::pairMi() { manager_->pairMi(); }

void MiBand::requestHkAuthorization() { manager_->requestHkAuthorization(); }

void MiBand::disconnectMi() { manager_->disconnectMi(); }

void MiBand::watchdogDisconnect() { manager_->disconnectMi(); }

void MiBand::kickWatchdogWithTime(double seconds) {
  watchdogTimer_.reset();
  platform_.runLoop.mainQueue().async([weak = std::weak_ptr(self_), seconds] {
    if (const auto self = weak.lock()) {
      self->watchdogTimer_ = self->platform_.runLoop.scheduledTimer(
          platform::seconds(seconds), false, [band = self.get()] { band->watchdogDisconnect(); });
    }
  });
}

void MiBand::connectedMode(bool on) { manager_->connectedMode(on); }

void MiBand::lockToMac() { manager_->lockToMac(); }

void MiBand::removeLock() { manager_->removeLock(); }

}  // namespace wrixel2::mbble
