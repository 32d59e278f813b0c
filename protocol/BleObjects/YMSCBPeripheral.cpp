#include "protocol/BleObjects/YMSCBPeripheral.h"

#include <utility>

#include "platform/Assertion.h"
#include "platform/CentralManager.h"
#include "platform/Platform.h"
#include "protocol/BleObjects/YMSCBCentralManager.h"
#include "protocol/BleObjects/YMSCBCharacteristic.h"
#include "protocol/BleObjects/YMSCBService.h"

namespace wrixel2::bleobjects {
namespace {

void discoverDescriptorsOfAll(const CharacteristicDict& characteristics,
                              const platform::ErrorOrNone& error) {
  if (error) {
    return;
  }
  for (const auto& [name, characteristic] : characteristics) {
    characteristic->discoverDescriptorsWithBlock(
        [](const std::vector<std::shared_ptr<YMSCBDescriptor>>&, const platform::ErrorOrNone&) {});
  }
}

void discoverCharacteristicsOfAll(const std::vector<std::shared_ptr<YMSCBService>>& services,
                                  const platform::ErrorOrNone& error) {
  if (error) {
    return;
  }
  for (const auto& service : services) {
    service->discoverCharacteristics(service->characteristics(), &discoverDescriptorsOfAll);
  }
}

}  // namespace

std::shared_ptr<YMSCBPeripheral> YMSCBPeripheral::create(
    const platform::Platform& platform, std::shared_ptr<platform::Peripheral> cbPeripheral,
    std::weak_ptr<YMSCBCentralManager> central, std::uint64_t baseHi, std::uint64_t baseLo) {
  const std::shared_ptr<YMSCBPeripheral> peripheral(
      new YMSCBPeripheral(platform, std::move(cbPeripheral), std::move(central), baseHi, baseLo));
  peripheral->init();
  return peripheral;
}

YMSCBPeripheral::YMSCBPeripheral(const platform::Platform& platform,
                                 std::shared_ptr<platform::Peripheral> cbPeripheral,
                                 std::weak_ptr<YMSCBCentralManager> central, std::uint64_t baseHi,
                                 std::uint64_t baseLo)
    : platform_(&platform),
      base_{baseHi, baseLo},
      cbPeripheral_(std::move(cbPeripheral)),
      central_(std::move(central)) {}

YMSCBPeripheral::~YMSCBPeripheral() = default;

void YMSCBPeripheral::init() {
  if (cbPeripheral_) {
    cbPeripheral_->setDelegate(weak_from_this());
  }
}

std::optional<std::string> YMSCBPeripheral::name() const {
  return cbPeripheral_ ? cbPeripheral_->name() : std::nullopt;
}

void YMSCBPeripheral::setDelegate(std::weak_ptr<platform::PeripheralDelegate> delegate) {
  delegate_ = std::move(delegate);
}

void YMSCBPeripheral::setCbPeripheral(std::shared_ptr<platform::Peripheral> peripheral) {
  cbPeripheral_ = std::move(peripheral);
}

std::shared_ptr<YMSCBService> YMSCBPeripheral::operator[](std::string_view key) const {
  const auto entry = serviceDict_.find(key);
  return entry == serviceDict_.end() ? nullptr : entry->second;
}

bool YMSCBPeripheral::isConnected() const {
  return cbPeripheral_ && cbPeripheral_->state() == platform::PeripheralState::connected;
}

std::vector<platform::UUID> YMSCBPeripheral::services() const {
  std::vector<platform::UUID> uuids;
  for (const auto& [name, service] : serviceDict_) {
    uuids.push_back(service->uuid());
  }
  return uuids;
}

std::vector<platform::UUID> YMSCBPeripheral::servicesSubset(
    const std::vector<std::string>& names) const {
  std::vector<platform::UUID> uuids;
  for (const auto& name : names) {
    if (const auto service = (*this)[name]) {
      uuids.push_back(service->uuid());
    }
  }
  return uuids;
}

std::shared_ptr<YMSCBService> YMSCBPeripheral::findService(
    const std::shared_ptr<platform::Service>& cbService) const {
  for (const auto& [name, service] : serviceDict_) {
    if (cbService && service->uuid() == cbService->uuid()) {
      return service;
    }
  }
  return nullptr;
}

void YMSCBPeripheral::connect() {
  resetWatchdog();
  connectWithOptions({}, [](const std::shared_ptr<YMSCBPeripheral>& peripheral,
                            const platform::ErrorOrNone& error) {
    if (!error) {
      peripheral->discoverServices(peripheral->services(), &discoverCharacteristicsOfAll);
    }
  });
}

void YMSCBPeripheral::disconnect() {
  watchdogTimer_.reset();
  cancelConnection();
}

void YMSCBPeripheral::connectWithOptions(const platform::Dictionary& options,
                                         ConnectCallback callback) {
  connectCallback_ = std::move(callback);
  const auto owner = central_.lock();
  if (owner && cbPeripheral_) {
    owner->manager().connectPeripheral(cbPeripheral_, options);
  }
}

void YMSCBPeripheral::cancelConnection() {
  connectCallback_ = nullptr;
  const auto owner = central_.lock();
  if (owner && cbPeripheral_) {
    owner->manager().cancelPeripheralConnection(cbPeripheral_);
  }
}

void YMSCBPeripheral::handleConnectionResponse(const platform::ErrorOrNone& error) {
  invalidateWatchdog();
  if (!connectCallback_) {
    defaultConnectionHandler();
    return;
  }
  const auto self = shared_from_this();
  const ConnectCallback callback = std::move(connectCallback_);
  callback(self, error);
  // Cleared only now, deliberately: an answer ends every attempt made so far, so a callback that
  // connects again from inside itself loses the new callback.
  connectCallback_ = nullptr;
}

void YMSCBPeripheral::defaultConnectionHandler() {
  platform::assertionFailure(
      "[YMSCBPeripheral defaultConnectionHandler] must be overridden if connectCallback is nil.");
}

void YMSCBPeripheral::resetWatchdog() {
  invalidateWatchdog();
  onMainQueue([](YMSCBPeripheral& self) {
    self.watchdogTimer_ = self.platform_->runLoop.scheduledTimer(
        self.watchdogTimerInterval_, false, [weak = self.weak_from_this()] {
          if (const auto peripheral = weak.lock()) {
            peripheral->watchdogDisconnect();
          }
        });
  });
}

void YMSCBPeripheral::invalidateWatchdog() {
  if (watchdogTimer_) {
    watchdogTimer_.reset();
    watchdogRaised_ = false;
  }
}

void YMSCBPeripheral::watchdogDisconnect() {
  if (!isConnected()) {
    watchdogRaised_ = true;
    disconnect();
  }
}

void YMSCBPeripheral::readRSSI() {
  if (cbPeripheral_) {
    cbPeripheral_->readRSSI();
  }
}

void YMSCBPeripheral::discoverServices(const std::vector<platform::UUID>& uuids,
                                       DiscoverServicesCallback callback) {
  discoverServicesCallback_ = std::move(callback);
  if (cbPeripheral_) {
    cbPeripheral_->discoverServices(uuids);
  }
}

void YMSCBPeripheral::onMainQueue(platform::UniqueFunction<void(YMSCBPeripheral& self)> work) {
  platform_->runLoop.mainQueue().async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) {
      work(*self);
    }
  });
}

template <typename... Parameters, typename... Arguments>
void YMSCBPeripheral::forward(void (platform::PeripheralDelegate::*event)(Parameters...),
                              const Arguments&... arguments) const {
  if (const auto receiver = delegate_.lock()) {
    ((*receiver).*event)(arguments...);
  }
}

void YMSCBPeripheral::peripheralDidDiscoverServices(
    const std::shared_ptr<platform::Peripheral>& peripheral, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, error](YMSCBPeripheral& self) {
    if (self.discoverServicesCallback_) {
      std::vector<std::shared_ptr<YMSCBService>> discovered;
      for (const auto& cbService : peripheral->services()) {
        if (auto service = self.findService(cbService)) {
          service->setCbService(cbService);
          discovered.push_back(std::move(service));
        }
      }
      const DiscoverServicesCallback callback = std::move(self.discoverServicesCallback_);
      callback(discovered, error);
      self.discoverServicesCallback_ = nullptr;
    }
    self.forward(&PeripheralDelegate::peripheralDidDiscoverServices, peripheral, error);
  });
}

void YMSCBPeripheral::peripheralDidDiscoverIncludedServicesForService(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Service>& service, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, service, error](YMSCBPeripheral& self) {
    self.forward(&PeripheralDelegate::peripheralDidDiscoverIncludedServicesForService, peripheral,
                 service, error);
  });
}

void YMSCBPeripheral::peripheralDidDiscoverCharacteristicsForService(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Service>& service, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, cbService = service, error](YMSCBPeripheral& self) {
    if (const auto found = self.findService(cbService)) {
      // Also after an error: what was found before it is of use.
      found->syncCharacteristics(cbService->characteristics());
      found->handleDiscoveredCharacteristicsResponse(found->characteristicDict(), error);
    }
    self.forward(&PeripheralDelegate::peripheralDidDiscoverCharacteristicsForService, peripheral,
                 cbService, error);
  });
}

std::shared_ptr<YMSCBService> YMSCBPeripheral::serviceOf(
    const std::shared_ptr<platform::Characteristic>& cbCharacteristic,
    const std::shared_ptr<platform::Service>& cbService) const {
  if (cbService) {
    return findService(cbService);
  }
  // Asked for on a link that had ended already: its service is gone, its callback waits all the
  // same, and would be called for the next link's first answer.
  for (const auto& [name, service] : serviceDict_) {
    for (const auto& [key, characteristic] : service->characteristicDict()) {
      if (characteristic->cbCharacteristic() == cbCharacteristic) {
        return service;
      }
    }
  }
  return nullptr;
}

void YMSCBPeripheral::route(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Characteristic>& characteristic,
    const platform::ErrorOrNone& error, CharacteristicEvent event,
    platform::UniqueFunction<void(YMSCBService&, const std::shared_ptr<YMSCBCharacteristic>&)>
        work) {
  // The service is asked for now: if the link ends before the turn comes, the platform may have let
  // go of it, and an answer that finds nobody would leave its callback to the answer after it.
  onMainQueue([peripheral, cbCharacteristic = characteristic, cbService = characteristic->service(),
               error, event, work = std::move(work)](YMSCBPeripheral& self) {
    if (const auto service = self.serviceOf(cbCharacteristic, cbService)) {
      if (const auto found = service->findCharacteristic(cbCharacteristic)) {
        work(*service, found);
      }
    }
    self.forward(event, peripheral, cbCharacteristic, error);
  });
}

void YMSCBPeripheral::peripheralDidDiscoverDescriptorsForCharacteristic(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Characteristic>& characteristic,
    const platform::ErrorOrNone& error) {
  route(peripheral, characteristic, error,
        &PeripheralDelegate::peripheralDidDiscoverDescriptorsForCharacteristic,
        [cbCharacteristic = characteristic, error](
            YMSCBService&, const std::shared_ptr<YMSCBCharacteristic>& found) {
          found->syncDescriptors(cbCharacteristic->descriptors());
          found->handleDiscoveredDescriptorsResponse(found->descriptors(), error);
        });
}

void YMSCBPeripheral::peripheralDidUpdateValueForCharacteristic(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Characteristic>& characteristic,
    const platform::ErrorOrNone& error) {
  // The value is taken now: of two notifications in one turn each is handled with its own.
  route(peripheral, characteristic, error,
        &PeripheralDelegate::peripheralDidUpdateValueForCharacteristic,
        [value = characteristic->value(), error](
            YMSCBService& service, const std::shared_ptr<YMSCBCharacteristic>& found) {
          found->setValue(value);
          // The platform does not tell a read's answer from a notification, so while a
          // characteristic notifies, deliberately all of it goes to the service.
          if (found->cbCharacteristic()->isNotifying()) {
            service.notifyCharacteristicHandler(found, error);
          } else if (!found->readCallbacks().isEmpty()) {
            found->executeReadCallback(value, error);
          }
        });
}

void YMSCBPeripheral::peripheralDidUpdateValueForDescriptor(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Descriptor>& descriptor, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, descriptor, error](YMSCBPeripheral& self) {
    self.forward(&PeripheralDelegate::peripheralDidUpdateValueForDescriptor, peripheral, descriptor,
                 error);
  });
}

void YMSCBPeripheral::peripheralDidUpdateNotificationStateForCharacteristic(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Characteristic>& characteristic,
    const platform::ErrorOrNone& error) {
  route(peripheral, characteristic, error,
        &PeripheralDelegate::peripheralDidUpdateNotificationStateForCharacteristic,
        [error](YMSCBService&, const std::shared_ptr<YMSCBCharacteristic>& found) {
          found->executeNotificationStateCallback(error);
        });
}

void YMSCBPeripheral::peripheralDidWriteValueForCharacteristic(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Characteristic>& characteristic,
    const platform::ErrorOrNone& error) {
  route(peripheral, characteristic, error,
        &PeripheralDelegate::peripheralDidWriteValueForCharacteristic,
        [error](YMSCBService& service, const std::shared_ptr<YMSCBCharacteristic>& found) {
          // A confirmation that nobody waits for is deliberately the service's too.
          if (!found->writeCallbacks().isEmpty()) {
            found->executeWriteCallback(error);
          } else {
            service.notifyCharacteristicHandler(found, error);
          }
        });
}

void YMSCBPeripheral::peripheralDidWriteValueForDescriptor(
    const std::shared_ptr<platform::Peripheral>& peripheral,
    const std::shared_ptr<platform::Descriptor>& descriptor, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, descriptor, error](YMSCBPeripheral& self) {
    self.forward(&PeripheralDelegate::peripheralDidWriteValueForDescriptor, peripheral, descriptor,
                 error);
  });
}

void YMSCBPeripheral::peripheralDidUpdateRSSI(
    const std::shared_ptr<platform::Peripheral>& peripheral, const platform::ErrorOrNone& error) {
  onMainQueue([peripheral, error](YMSCBPeripheral& self) {
    self.forward(&PeripheralDelegate::peripheralDidUpdateRSSI, peripheral, error);
  });
}

void YMSCBPeripheral::peripheralDidUpdateName(
    const std::shared_ptr<platform::Peripheral>& peripheral) {
  onMainQueue([peripheral](YMSCBPeripheral& self) {
    self.forward(&PeripheralDelegate::peripheralDidUpdateName, peripheral);
  });
}

}  // namespace wrixel2::bleobjects
