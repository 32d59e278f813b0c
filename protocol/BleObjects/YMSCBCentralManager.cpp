#include "protocol/BleObjects/YMSCBCentralManager.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/Assertion.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBPeripheral.h"
#include "protocol/BleObjects/YMSCBService.h"

namespace wrixel2::bleobjects {

YMSCBCentralManager::YMSCBCentralManager(const platform::Platform& platform,
                                         std::vector<std::string> knownPeripheralNames,
                                         platform::Queue queue, bool useStoredPeripherals,
                                         std::weak_ptr<platform::CentralManagerDelegate> delegate)
    : platform_(&platform),
      log_(platform.log, "YMSCBCentralManager"),
      queue_(std::move(queue)),
      storedPeripherals_(platform.userDefaults),
      delegate_(std::move(delegate)),
      knownPeripheralNames_(std::move(knownPeripheralNames)),
      useStoredPeripherals_(useStoredPeripherals) {}

YMSCBCentralManager::YMSCBCentralManager(const platform::Platform& platform,
                                         std::vector<std::string> knownPeripheralNames,
                                         platform::Queue queue,
                                         std::weak_ptr<platform::CentralManagerDelegate> delegate)
    : YMSCBCentralManager(platform, std::move(knownPeripheralNames), std::move(queue), false,
                          std::move(delegate)) {}

YMSCBCentralManager::~YMSCBCentralManager() = default;

void YMSCBCentralManager::init() {
  manager_ = platform_->bluetoothRadio.makeCentralManager(weak_from_this(), queue_,
                                                          storedPeripherals_.genIdentifiers());
  if (useStoredPeripherals_) {
    storedPeripherals_.initializeStorage();
  }
}

void YMSCBCentralManager::setDelegate(std::weak_ptr<platform::CentralManagerDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void YMSCBCentralManager::setKnownPeripheralNames(std::vector<std::string> names) {
  knownPeripheralNames_ = std::move(names);
}

void YMSCBCentralManager::setDiscoveredCallback(DiscoveredCallback callback) {
  discoveredCallback_ =
      callback ? std::make_shared<DiscoveredCallback>(std::move(callback)) : nullptr;
}

void YMSCBCentralManager::setRetrievedCallback(RetrievedCallback callback) {
  retrievedCallback_ = std::move(callback);
}

std::shared_ptr<YMSCBPeripheral> YMSCBCentralManager::peripheralAtIndex(std::size_t index) const {
  return index < ymsPeripherals_.size() ? ymsPeripherals_[index] : nullptr;
}

void YMSCBCentralManager::addPeripheral(std::shared_ptr<YMSCBPeripheral> peripheral) {
  insertObjectInYmsPeripheralsAtIndex(std::move(peripheral), count());
}

void YMSCBCentralManager::removePeripheral(const std::shared_ptr<YMSCBPeripheral>& peripheral) {
  const auto entry = std::find(ymsPeripherals_.begin(), ymsPeripherals_.end(), peripheral);
  if (entry != ymsPeripherals_.end()) {
    removePeripheralAtIndex(static_cast<std::size_t>(entry - ymsPeripherals_.begin()));
  }
}

void YMSCBCentralManager::removePeripheralAtIndex(std::size_t index) {
  removeObjectFromYmsPeripheralsAtIndex(index);
}

void YMSCBCentralManager::removeAllPeripherals() {
  while (count() > 0) {
    removePeripheralAtIndex(0);
  }
}

void YMSCBCentralManager::insertObjectInYmsPeripheralsAtIndex(
    std::shared_ptr<YMSCBPeripheral> peripheral, std::size_t index) {
  const auto place = static_cast<std::ptrdiff_t>(std::min(index, count()));
  ymsPeripherals_.insert(ymsPeripherals_.begin() + place, std::move(peripheral));
}

void YMSCBCentralManager::removeObjectFromYmsPeripheralsAtIndex(std::size_t index) {
  const auto peripheral = peripheralAtIndex(index);
  if (!peripheral) {
    return;
  }
  if (useStoredPeripherals_ && peripheral->cbPeripheral()) {
    storedPeripherals_.deleteUUID(peripheral->cbPeripheral()->identifier());
  }
  ymsPeripherals_.erase(ymsPeripherals_.begin() + static_cast<std::ptrdiff_t>(index));
}

bool YMSCBCentralManager::isKnownPeripheral(const platform::Peripheral& peripheral) const {
  const auto name = peripheral.name();
  return name && std::find(knownPeripheralNames_.begin(), knownPeripheralNames_.end(), *name) !=
                     knownPeripheralNames_.end();
}

std::shared_ptr<YMSCBPeripheral> YMSCBCentralManager::findPeripheral(
    const std::shared_ptr<platform::Peripheral>& cbPeripheral) const {
  const auto entry = std::find_if(
      ymsPeripherals_.begin(), ymsPeripherals_.end(),
      [&](const auto& peripheral) { return peripheral->cbPeripheral() == cbPeripheral; });
  return entry == ymsPeripherals_.end() ? nullptr : *entry;
}

void YMSCBCentralManager::startScan() {
  platform::assertionFailure(
      "[YMSCBCentralManager startScan] must be be overridden and include call to [self "
      "scanForPeripherals:options:]");
}

void YMSCBCentralManager::scanForPeripheralsWithServices(
    const std::optional<std::vector<platform::UUID>>& services,
    const platform::Dictionary& options) {
  manager_->scanForPeripheralsWithServices(services, options);
  isScanning_ = true;
  resetWatchdog();
}

void YMSCBCentralManager::scanForPeripheralsWithServicesWithBlock(
    const std::optional<std::vector<platform::UUID>>& services, const platform::Dictionary& options,
    DiscoveredCallback callback) {
  setDiscoveredCallback(std::move(callback));
  scanForPeripheralsWithServices(services, options);
}

void YMSCBCentralManager::stopScan() {
  manager_->stopScan();
  isScanning_ = false;
  invalidateWatchdog();
}

void YMSCBCentralManager::resetWatchdog() {
  invalidateWatchdog();
  onMainQueue([](YMSCBCentralManager& self) {
    self.watchdogTimer_ = self.platform_->runLoop.scheduledTimer(
        self.watchdogTimerInterval_, false, [weak = self.weak_from_this()] {
          if (const auto central = weak.lock()) {
            central->watchdogDisconnect();
          }
        });
  });
}

void YMSCBCentralManager::invalidateWatchdog() { watchdogTimer_.reset(); }

void YMSCBCentralManager::watchdogDisconnect() {
  if (isScanning_) {
    stopScan();
  }
  watchdogTimer_.reset();
}

void YMSCBCentralManager::handleFoundPeripheral(
    const std::shared_ptr<platform::Peripheral>& /*peripheral*/) {
  platform::assertionFailure("[YMSCBCentralManager handleFoundPeripheral:] must be be overridden.");
}

std::vector<std::shared_ptr<platform::Peripheral>>
YMSCBCentralManager::retrieveConnectedPeripheralsWithServices(
    const std::vector<platform::UUID>& services) {
  return manager_->retrieveConnectedPeripheralsWithServices(services);
}

std::vector<std::shared_ptr<platform::Peripheral>>
YMSCBCentralManager::retrievePeripheralsWithIdentifiers(
    const std::vector<platform::UUID>& identifiers) {
  return manager_->retrievePeripheralsWithIdentifiers(identifiers);
}

void YMSCBCentralManager::managerPoweredOnHandler() {}
void YMSCBCentralManager::managerUnknownHandler() {}
void YMSCBCentralManager::managerPoweredOffHandler() {}
void YMSCBCentralManager::managerResettingHandler() { ymsPeripherals_.clear(); }
void YMSCBCentralManager::managerUnauthorizedHandler() {}
void YMSCBCentralManager::managerUnsupportedHandler() {}

void YMSCBCentralManager::onMainQueue(
    platform::UniqueFunction<void(YMSCBCentralManager& self)> work) {
  platform_->runLoop.mainQueue().async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) {
      work(*self);
    }
  });
}

void YMSCBCentralManager::callStateHandler(platform::CentralState state) {
  switch (state) {
    case platform::CentralState::unknown:
      managerUnknownHandler();
      break;
    case platform::CentralState::resetting:
      managerResettingHandler();
      break;
    case platform::CentralState::unsupported:
      managerUnsupportedHandler();
      break;
    case platform::CentralState::unauthorized:
      managerUnauthorizedHandler();
      break;
    case platform::CentralState::poweredOff:
      managerPoweredOffHandler();
      break;
    case platform::CentralState::poweredOn:
      managerPoweredOnHandler();
      break;
  }
}

void YMSCBCentralManager::centralManagerDidUpdateState(platform::CentralManager& central) {
  // The state is taken now: a radio that goes off and on in one turn is handled as both.
  onMainQueue([state = central.state()](YMSCBCentralManager& self) {
    self.callStateHandler(state);
    if (const auto receiver = self.delegate_.lock()) {
      receiver->centralManagerDidUpdateState(self.manager());
    }
  });
}

void YMSCBCentralManager::centralManagerDidDiscoverPeripheral(
    platform::CentralManager& /*central*/, const std::shared_ptr<platform::Peripheral>& peripheral,
    const platform::Dictionary& advertisementData, int rssi) {
  onMainQueue([peripheral, advertisementData, rssi](YMSCBCentralManager& self) {
    if (self.useStoredPeripherals_) {
      self.storedPeripherals_.saveUUID(peripheral->identifier());
    }
    if (const auto callback = self.discoveredCallback_) {
      (*callback)(peripheral, advertisementData, rssi, std::nullopt);
    } else {
      self.handleFoundPeripheral(peripheral);
    }
    if (const auto receiver = self.delegate_.lock()) {
      receiver->centralManagerDidDiscoverPeripheral(self.manager(), peripheral, advertisementData,
                                                    rssi);
    }
  });
}

void YMSCBCentralManager::centralManagerDidConnectPeripheral(
    platform::CentralManager& /*central*/,
    const std::shared_ptr<platform::Peripheral>& peripheral) {
  onMainQueue([peripheral](YMSCBCentralManager& self) {
    if (const auto found = self.findPeripheral(peripheral)) {
      found->handleConnectionResponse(std::nullopt);
    }
    if (const auto receiver = self.delegate_.lock()) {
      receiver->centralManagerDidConnectPeripheral(self.manager(), peripheral);
    }
  });
}

void YMSCBCentralManager::centralManagerDidDisconnectPeripheral(
    platform::CentralManager& /*central*/, const std::shared_ptr<platform::Peripheral>& peripheral,
    const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, error](YMSCBCentralManager& self) {
    if (const auto found = self.findPeripheral(peripheral)) {
      found->setIsInitialized(false);
      for (const auto& [name, service] : found->serviceDict()) {
        service->setCbService(nullptr);
        service->setIsOn(false);
        service->setIsEnabled(false);
      }
    }
    if (const auto receiver = self.delegate_.lock()) {
      receiver->centralManagerDidDisconnectPeripheral(self.manager(), peripheral, error);
    }
  });
}

void YMSCBCentralManager::centralManagerDidFailToConnectPeripheral(
    platform::CentralManager& /*central*/, const std::shared_ptr<platform::Peripheral>& peripheral,
    const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, error](YMSCBCentralManager& self) {
    if (const auto found = self.findPeripheral(peripheral)) {
      found->handleConnectionResponse(error);
    }
    if (const auto receiver = self.delegate_.lock()) {
      receiver->centralManagerDidFailToConnectPeripheral(self.manager(), peripheral, error);
    }
    // Last, deliberately: whoever is told writes its own lines before this summary.
    self.log_.error(fmt::format("Failed to connect :( {}", platform::description(error)));
  });
}

}  // namespace wrixel2::bleobjects
