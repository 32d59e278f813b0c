#include "platform/simulated/SimulatedCentralManager.h"

#include <algorithm>
#include <utility>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"
#include "platform/Assertion.h"
#include "platform/simulated/SimulatedPeripheral.h"
#include "platform/simulated/VirtualLink.h"

namespace wrixel2::platform::simulated {

namespace {

bool containsAny(const std::vector<UUID>& list, const std::vector<UUID>& wanted) {
  return std::ranges::any_of(
      wanted, [&list](const UUID& uuid) { return std::ranges::find(list, uuid) != list.end(); });
}

std::vector<UUID> uuidsOfServices() {
  std::vector<UUID> uuids;
  for (const auto& service : band::bandServices()) {
    uuids.push_back(service.uuid);
  }
  return uuids;
}

SimulatedPeripheral& asSimulated(const std::shared_ptr<Peripheral>& peripheral) {
  auto* const found = dynamic_cast<SimulatedPeripheral*>(peripheral.get());
  if (found == nullptr) {
    assertionFailure("A virtual central manager was given a peripheral that is not its own");
  }
  return *found;
}

}  // namespace

SimulatedCentralManager::SimulatedCentralManager(VirtualRadio& radio,
                                                 std::weak_ptr<CentralManagerDelegate> delegate,
                                                 Queue queue)
    : radio_(radio), delegate_(std::move(delegate)), queue_(std::move(queue)) {
  radio_.managers_.push_back(this);
  reportState(radio_.state());
}

SimulatedCentralManager::~SimulatedCentralManager() {
  std::erase(radio_.managers_, this);
  for (const auto& peripheral : peripherals_) {
    peripheral->leave();
  }
}

template <typename Call>
void SimulatedCentralManager::tellDelegate(const Call& call) {
  if (const auto delegate = delegate_.lock()) {
    call(*delegate);
  }
}

void SimulatedCentralManager::deliver(Event event, bool beforeDisconnection) {
  auto position = events_.end();
  if (beforeDisconnection) {
    position = std::ranges::find_if(events_, [&event](const Event& waiting) {
      return waiting.kind == EventKind::disconnection && waiting.subject == event.subject;
    });
  }
  events_.insert(position, std::move(event));
  queue_.async([self = std::weak_ptr<SimulatedCentralManager*>(self_)] {
    if (const auto manager = self.lock()) {
      (*manager)->deliverNext();
    }
  });
}

void SimulatedCentralManager::deliverNext() {
  // There are as many turns as events, less those that were dropped.
  if (!events_.empty()) {
    const Event event = std::move(events_.front());
    events_.pop_front();
    event.task();
  }
}

void SimulatedCentralManager::reportState(CentralState state) {
  deliver({EventKind::other, nullptr, [this, state] {
             state_ = state;
             tellDelegate([this](CentralManagerDelegate& delegate) {
               delegate.centralManagerDidUpdateState(*this);
             });
           }});
}

void SimulatedCentralManager::deliverConnection(SimulatedPeripheral& peripheral, Task change) {
  deliver({EventKind::connection, &peripheral,
           [this, subject = peripheral.shared_from_this(), change = std::move(change)] {
             change();
             tellDelegate([&](CentralManagerDelegate& delegate) {
               delegate.centralManagerDidConnectPeripheral(*this, subject);
             });
           }});
}

void SimulatedCentralManager::deliverConnectionFailure(SimulatedPeripheral& peripheral,
                                                       const Error& error, Task change) {
  deliver({EventKind::other, &peripheral,
           [this, subject = peripheral.shared_from_this(), error, change = std::move(change)] {
             change();
             tellDelegate([&](CentralManagerDelegate& delegate) {
               delegate.centralManagerDidFailToConnectPeripheral(*this, subject, error);
             });
           }});
}

void SimulatedCentralManager::deliverDisconnection(SimulatedPeripheral& peripheral,
                                                   const ErrorOrNone& error, Task change) {
  deliver({EventKind::disconnection, &peripheral,
           [this, subject = peripheral.shared_from_this(), error, change = std::move(change)] {
             change();
             tellDelegate([&](CentralManagerDelegate& delegate) {
               delegate.centralManagerDidDisconnectPeripheral(*this, subject, error);
             });
           }});
}

void SimulatedCentralManager::deliverAnswer(SimulatedPeripheral& peripheral, bool isLinked,
                                            Task task) {
  deliver({EventKind::other, &peripheral, std::move(task)}, !isLinked);
}

void SimulatedCentralManager::dropConnectionEvent(SimulatedPeripheral& peripheral) {
  std::erase_if(events_, [&peripheral](const Event& event) {
    return event.kind == EventKind::connection && event.subject == &peripheral;
  });
}

void SimulatedCentralManager::scanForPeripheralsWithServices(
    const std::optional<std::vector<UUID>>& services, const Dictionary& options) {
  if (radio_.state() != CentralState::poweredOn) {
    return;
  }
  scan_ = std::make_shared<char>();
  scanServices_ = services;
  reportsDuplicates_ = boolForKey(options, kScanOptionAllowDuplicates);
  reported_.clear();
  updateScan();
}

void SimulatedCentralManager::stopScan() {
  scan_.reset();
  updateScan();
}

bool SimulatedCentralManager::isHeard(const VirtualLink& link) const {
  return link.band().isAdvertising() && (reportsDuplicates_ || !reported_.contains(&link)) &&
         (!scanServices_ || containsAny(link.band().advertisement().services, *scanServices_));
}

void SimulatedCentralManager::updateScan() {
  const bool isNeeded =
      scan_ != nullptr &&
      std::ranges::any_of(radio_.links_, [this](const auto& link) { return isHeard(*link); });
  if (!isNeeded) {
    scanTimer_.reset();
  } else if (scanTimer_ == nullptr) {
    scanTimer_ = radio_.loop_.scheduledTimer(radio_.timings.advertisingInterval, true,
                                             [this] { hearAdvertisements(); });
  }
}

void SimulatedCentralManager::hearAdvertisements() {
  for (const auto& link : radio_.links_) {
    if (isHeard(*link)) {
      reported_.insert(link.get());
      deliverAdvertisement(*link);
    }
  }
  updateScan();
}

void SimulatedCentralManager::deliverAdvertisement(VirtualLink& link) {
  const auto advertisement = link.band().advertisement();
  deliver(
      {EventKind::other, nullptr,
       [this, scan = std::weak_ptr<void>(scan_), subject = peripheralOf(link),
        data = Dictionary{{std::string(kAdvDataManufacturerData), advertisement.manufacturerData},
                          {std::string(kAdvDataLocalName), advertisement.localName}},
        rssi = radio_.rssi] {
         if (!scan.expired()) {
           tellDelegate([&](CentralManagerDelegate& delegate) {
             delegate.centralManagerDidDiscoverPeripheral(*this, subject, data, rssi);
           });
         }
       }});
}

std::shared_ptr<SimulatedPeripheral> SimulatedCentralManager::peripheralOf(VirtualLink& link) {
  const auto found = std::ranges::find_if(
      peripherals_, [&link](const auto& peripheral) { return peripheral->link() == &link; });
  if (found != peripherals_.end()) {
    return *found;
  }
  peripherals_.push_back(std::make_shared<SimulatedPeripheral>(*this, link));
  return peripherals_.back();
}

void SimulatedCentralManager::connectPeripheral(const std::shared_ptr<Peripheral>& peripheral,
                                                const Dictionary& /*options*/) {
  asSimulated(peripheral).connect();
}

void SimulatedCentralManager::cancelPeripheralConnection(
    const std::shared_ptr<Peripheral>& peripheral) {
  asSimulated(peripheral).cancelConnection();
}

void SimulatedCentralManager::endLeftoverLink(const std::shared_ptr<Peripheral>& peripheral) {
  for (const auto& link : radio_.links_) {
    if (link.get() == asSimulated(peripheral).link() && link->owner() == nullptr) {
      link->end(std::nullopt);
    }
  }
}

bool SimulatedCentralManager::respondsToRetrieveConnectedPeripherals() const {
  return radio_.respondsToRetrieveConnectedPeripherals;
}

std::vector<std::shared_ptr<Peripheral>>
SimulatedCentralManager::retrieveConnectedPeripheralsWithServices(
    const std::vector<UUID>& services) {
  std::vector<std::shared_ptr<Peripheral>> peripherals;
  for (const auto& link : radio_.links_) {
    if (link->isUp() && containsAny(uuidsOfServices(), services)) {
      peripherals.push_back(peripheralOf(*link));
    }
  }
  return peripherals;
}

std::vector<std::shared_ptr<Peripheral>>
SimulatedCentralManager::retrievePeripheralsWithIdentifiers(const std::vector<UUID>& identifiers) {
  std::vector<std::shared_ptr<Peripheral>> peripherals;
  for (const auto& identifier : identifiers) {
    for (const auto& link : radio_.links_) {
      if (VirtualRadio::identifierOf(link->band()) == identifier) {
        peripherals.push_back(peripheralOf(*link));
      }
    }
  }
  return peripherals;
}

void SimulatedCentralManager::radioLost() {
  stopScan();
  for (const auto& peripheral : peripherals_) {
    peripheral->forgetPendingConnection();
  }
}

void SimulatedCentralManager::airChanged() {
  updateScan();
  for (const auto& peripheral : peripherals_) {
    peripheral->tryToConnect();
  }
}

}  // namespace wrixel2::platform::simulated
