#include "platform/linux/bluez/BluezCentralManager.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "platform/Assertion.h"
#include "platform/linux/bluez/BluezDevice.h"
#include "platform/linux/bluez/BluezErrors.h"

namespace wrixel2::platform::bluez {
namespace {

BluezPeripheral& asBluez(const std::shared_ptr<Peripheral>& peripheral) {
  auto* const found = dynamic_cast<BluezPeripheral*>(peripheral.get());
  if (found == nullptr) {
    assertionFailure("A central manager was given a peripheral that is not its own");
  }
  return *found;
}

std::string pathOfAdapter(std::string_view name) { return fmt::format("{}/{}", kBluezRoot, name); }

std::string nameOfPath(std::string_view path) {
  return std::string(path.substr(path.rfind('/') + 1));
}

bool canBeCentral(const Dictionary& adapter) {
  const auto* roles = find(adapter, "Roles");
  // Versions without the property know no adapter that is a peripheral only.
  return roles == nullptr || roles->array() == nullptr ||
         std::ranges::find(*roles->array(), Value("central")) != roles->array()->end();
}

bool holds(const Dictionary& dictionary, std::string_view key) {
  return find(dictionary, key) != nullptr;
}

}  // namespace

BluezCentralManager::BluezCentralManager(std::unique_ptr<BluezBus> bus, RunLoop& loop,
                                         const Clock& clock, Log& log,
                                         std::weak_ptr<CentralManagerDelegate> delegate,
                                         Queue queue, Options options)
    : loop_(loop),
      clock_(clock),
      logger_(log, "BluezCentralManager"),
      delegate_(std::move(delegate)),
      deliveries_(std::move(queue)),
      wantedAdapter_(std::move(options.adapter)),
      knownIdentifiers_(options.storedIdentifiers.begin(), options.storedIdentifiers.end()),
      bus_(std::move(bus)),
      scanner_(*bus_, loop_, logger_, [this] { linkNeedsChanged(); }) {
  bus_->start(*this);
}

BluezCentralManager::~BluezCentralManager() {
  endLinks();
  for (const auto& [name, peripheral] : peripherals_) {
    peripheral->leave();
  }
}

template <typename Call>
void BluezCentralManager::tellDelegate(const Call& call) {
  if (const auto delegate = delegate_.lock()) {
    call(*delegate);
  }
}

// --- The bus and bluetoothd ---

void BluezCentralManager::busUnavailable(const Error& error) {
  reach_ = Reach::noBus;
  hadBluez_ = false;
  objects_.clear();
  scanner_.bluezLost();
  logOnce(LogLevel::warning,
          fmt::format("No Bluetooth until the system bus can be reached: {}", description(error)));
  review();
}

void BluezCentralManager::bluezOwnerChanged(bool isThere) {
  objects_.clear();
  scanner_.bluezLost();
  if (isThere) {
    hadBluez_ = true;
    getObjects();
    return;
  }
  reach_ = Reach::noBluez;
  logOnce(LogLevel::warning,
          "No Bluetooth until bluetoothd runs: nobody has the bus name " + std::string(kBluezName));
  review();
}

void BluezCentralManager::getObjects() {
  reach_ = Reach::waiting;
  bus_->call({"/", kObjectManagerInterface, "GetManagedObjects"}, kObjectsTimeout,
             [this](const BluezReply& reply) { objectsReplied(reply); });
}

void BluezCentralManager::objectsReplied(const BluezReply& reply) {
  if (reply.errorName == "org.freedesktop.DBus.Error.NoReply") {
    logOnce(LogLevel::warning, "bluetoothd does not answer; it is asked again");
    getObjects();
    return;
  }
  if (isAccessDenied(reply)) {
    reach_ = Reach::denied;
    logOnce(LogLevel::warning,
            fmt::format("No Bluetooth: this user may not talk to bluetoothd ({})",
                        description(errorOfReply(reply))));
    review();
    return;
  }
  takeObjects(reply);
  reach_ = Reach::known;
  review();
}

bool BluezCentralManager::takeObjects(const BluezReply& reply) {
  const auto* objects =
      reply.isError() || reply.values.empty() ? nullptr : reply.values.front().dictionary();
  if (objects == nullptr) {
    logger_.warning(
        fmt::format("bluetoothd does not tell its objects: {}", description(errorOfReply(reply))));
    return false;
  }
  objects_.replace(*objects);
  return true;
}

void BluezCentralManager::fetchObjects(Task done) {
  bus_->call({"/", kObjectManagerInterface, "GetManagedObjects"}, kObjectsTimeout,
             [this, done = std::move(done)](const BluezReply& reply) {
               if (takeObjects(reply)) {
                 reconcile();
               }
               done();
             });
}

void BluezCentralManager::reconcile() {
  review();
  // A change may be in here before it is announced.
  for (const auto& [name, peripheral] : peripherals_) {
    if (const auto* device = objects_.properties(pathOfDevice(name), kDeviceInterface)) {
      peripheral->link().connectedChanged(boolForKey(*device, "Connected"));
    } else {
      peripheral->link().deviceRemoved();
    }
  }
}

// --- State ---

bool BluezCentralManager::hasPower(const std::string& adapter) const {
  const auto* properties = objects_.properties(adapter, kAdapterInterface);
  return properties != nullptr && boolForKey(*properties, "Powered");
}

std::vector<std::string> BluezCentralManager::usableAdapters() const {
  auto adapters = objects_.pathsBelow(kBluezRoot, kAdapterInterface);
  std::erase_if(adapters, [this](const std::string& adapter) {
    return !canBeCentral(*objects_.properties(adapter, kAdapterInterface)) ||
           (wantedAdapter_ && adapter != pathOfAdapter(*wantedAdapter_));
  });
  // hci2 before hci10.
  std::ranges::sort(adapters, {},
                    [](const std::string& path) { return std::pair(path.size(), path); });
  return adapters;
}

std::string BluezCentralManager::chooseAdapter() const {
  const auto adapters = usableAdapters();
  if (std::ranges::find(adapters, adapter_) != adapters.end() && hasPower(adapter_)) {
    return adapter_;
  }
  const auto powered = std::ranges::find_if(
      adapters, [this](const std::string& adapter) { return hasPower(adapter); });
  if (powered != adapters.end()) {
    return *powered;
  }
  return adapters.empty() ? std::string() : adapters.front();
}

void BluezCentralManager::review() {
  switch (reach_) {
    case Reach::unknown:
    case Reach::waiting:
      return;
    case Reach::noBus:
      setState(CentralState::unsupported);
      return;
    case Reach::noBluez:
      setState(hadBluez_ ? CentralState::resetting : CentralState::unsupported);
      return;
    case Reach::denied:
      setState(CentralState::unauthorized);
      return;
    case Reach::known:
      reviewAdapter();
      return;
  }
}

void BluezCentralManager::reviewAdapter() {
  const std::string adapter = chooseAdapter();
  if (adapter != adapter_) {
    if (isPoweredOn()) {
      setState(adapter.empty() ? CentralState::unsupported : CentralState::poweredOff);
    }
    adapter_ = adapter;
  }
  if (adapter_.empty()) {
    logOnce(LogLevel::warning,
            wantedAdapter_
                ? fmt::format("No Bluetooth until the adapter {} is there", *wantedAdapter_)
                : "No Bluetooth until there is an adapter that can be a central");
    setState(CentralState::unsupported);
  } else if (!hasPower(adapter_)) {
    // "off-blocked" is told by bluetoothd 5.65 and later.
    const auto power =
        textForKey(*objects_.properties(adapter_, kAdapterInterface), "PowerState").value_or("");
    logOnce(LogLevel::warning,
            fmt::format(
                "No Bluetooth until the adapter {} {}", nameOfPath(adapter_),
                power == "off-blocked" ? "is unblocked (rfkill unblock bluetooth)" : "has power"));
    setState(CentralState::poweredOff);
  } else if (!isPoweredOn()) {
    logOnce(LogLevel::info, fmt::format("The Bluetooth adapter is {}", nameOfPath(adapter_)));
    setState(CentralState::poweredOn);
  }
}

void BluezCentralManager::setState(CentralState state) {
  if (state == state_) {
    return;
  }
  const bool isLeavingPoweredOn = isPoweredOn();
  state_ = state;
  if (isLeavingPoweredOn) {
    scan_.reset();
    for (const auto& [name, peripheral] : peripherals_) {
      peripheral->link().radioLost();
    }
    linkNeedsChanged();
  }
  deliveries_.deliver([this, state] {
    shownState_ = state;
    tellDelegate(
        [this](CentralManagerDelegate& delegate) { delegate.centralManagerDidUpdateState(*this); });
  });
}

void BluezCentralManager::logOnce(LogLevel level, const std::string& line) {
  if (std::exchange(logged_, line) == line) {
    return;
  }
  if (level == LogLevel::info) {
    logger_.info(line);
  } else {
    logger_.warning(line);
  }
  deliveries_.deliver([this] {
    tellDelegate(
        [this](CentralManagerDelegate& delegate) { delegate.centralManagerProblemChanged(*this); });
  });
}

// --- What is heard of the objects ---

std::string BluezCentralManager::pathOfDevice(const std::string& device) const {
  return adapter_ + "/" + device;
}

std::string BluezCentralManager::deviceOfPath(const std::string& path) const {
  if (adapter_.empty() || !path.starts_with(adapter_ + "/")) {
    return {};
  }
  const auto begin = adapter_.size() + 1;
  return path.substr(begin, path.find('/', begin) - begin);
}

BluezPeripheral* BluezCentralManager::knownPeripheral(const std::string& path) const {
  const auto found = peripherals_.find(deviceOfPath(path));
  return found == peripherals_.end() ? nullptr : found->second.get();
}

std::shared_ptr<BluezPeripheral> BluezCentralManager::peripheralOf(const std::string& path) {
  const std::string device = deviceOfPath(path);
  auto& peripheral = peripherals_[device];
  if (peripheral == nullptr) {
    BluezCentralContext& context = *this;
    BluezLinkAnswers& answers = *this;
    peripheral = std::make_shared<BluezPeripheral>(context, answers, device,
                                                   *objects_.properties(path, kDeviceInterface));
  }
  return peripheral;
}

void BluezCentralManager::interfacesAdded(const std::string& path, const Dictionary& interfaces) {
  if (reach_ != Reach::known) {
    return;  // the objects that were asked for tell it as well
  }
  objects_.add(path, interfaces);
  if (holds(interfaces, kAdapterInterface)) {
    review();
  }
  auto* const peripheral = knownPeripheral(path);
  if (holds(interfaces, kDeviceInterface)) {
    const auto* device = find(interfaces, kDeviceInterface)->dictionary();
    if (device != nullptr) {
      deviceChanged(path, *device);
      heard(path);
    }
  } else if (peripheral != nullptr) {
    peripheral->gatt().objectAdded(path);
  }
}

void BluezCentralManager::interfacesRemoved(const std::string& path, const Array& interfaces) {
  objects_.remove(path, interfaces);
  const auto isRemoved = [&interfaces](std::string_view interface) {
    return std::ranges::find(interfaces, Value(interface)) != interfaces.end();
  };
  if (auto* const peripheral = knownPeripheral(path)) {
    if (isRemoved(kDeviceInterface)) {
      peripheral->link().deviceRemoved();
    } else {
      peripheral->gatt().objectRemoved(path);
    }
  }
  if (isRemoved(kAdapterInterface)) {
    review();
  }
}

void BluezCentralManager::propertiesChanged(const std::string& path, const std::string& interface,
                                            const Dictionary& changed, const Array& invalidated) {
  if (!objects_.change(path, interface, changed, invalidated)) {
    return;
  }
  if (interface == kAdapterInterface) {
    if (path == adapter_ && holds(changed, "Discovering")) {
      scanner_.discoveringChanged(boolForKey(changed, "Discovering"));
    }
    review();
  } else if (interface == kDeviceInterface) {
    deviceChanged(path, changed);
    if (holds(changed, "RSSI") || holds(changed, "ManufacturerData")) {
      heard(path);
    }
  } else if (interface == kCharacteristicInterface) {
    const auto* value = find(changed, "Value");
    auto* const peripheral = knownPeripheral(path);
    if (peripheral != nullptr && value != nullptr && value->data() != nullptr) {
      peripheral->gatt().valueAnnounced(path, *value->data());
    }
  }
}

void BluezCentralManager::deviceChanged(const std::string& path, const Dictionary& changed) {
  auto* const peripheral = knownPeripheral(path);
  if (peripheral == nullptr) {
    return;
  }
  if (holds(changed, "Connected")) {
    peripheral->link().connectedChanged(boolForKey(changed, "Connected"));
  }
  if (holds(changed, "ServicesResolved")) {
    peripheral->gatt().servicesResolved(boolForKey(changed, "ServicesResolved"));
  }
  if (const auto* device = objects_.properties(path, kDeviceInterface)) {
    peripheral->updateName(*device);
  }
}

void BluezCentralManager::deviceDisconnected(const std::string& path, const std::string& reason) {
  if (auto* const peripheral = knownPeripheral(path)) {
    peripheral->link().disconnectedBecause(reason);
  }
}

// --- Scanning ---

void BluezCentralManager::scanForPeripheralsWithServices(
    const std::optional<std::vector<UUID>>& services, const Dictionary& options) {
  if (!isPoweredOn()) {
    logger_.warning("A scan is not started: the radio is not powered on");
    return;
  }
  scan_ = std::make_shared<Scan>();
  scan_->services = services;
  scan_->reportsDuplicates = boolForKey(options, kScanOptionAllowDuplicates);
  linkNeedsChanged();
}

void BluezCentralManager::stopScan() {
  scan_.reset();
  linkNeedsChanged();
}

void BluezCentralManager::linkNeedsChanged() {
  bool isConnecting = false;
  bool isSearching = false;
  for (const auto& [name, peripheral] : peripherals_) {
    const auto& link = peripheral->link();
    isConnecting = isConnecting || link.isReady() || link.isCalling();
    isSearching = isSearching || link.isSearching();
  }
  // A scan and a connection in the making disturb each other.
  std::optional<BluezScanner::Wish> wish;
  if (isPoweredOn() && !isConnecting && (scan_ || isSearching)) {
    wish = {adapter_, isSearching ? std::nullopt : scan_->services};
  }
  scanner_.want(wish);
  if (!scanner_.isIdle()) {
    return;
  }
  for (const auto& [name, peripheral] : peripherals_) {
    if (peripheral->link().isReady()) {
      peripheral->link().permitCall();
    }
  }
}

bool BluezCentralManager::isWanted(const std::string& path, const Dictionary& device,
                                   const std::optional<std::vector<UUID>>& services) const {
  // A device that we know may have lost its services: bluetoothd forgets them with the link or the
  // adapter's power, and takes what is advertised after that for nothing new.
  const bool isKnown =
      knownPeripheral(path) != nullptr || knownIdentifiers_.contains(identifierOfDevice(device));
  return offersAny(device, services) || (isKnown && offersNothing(device));
}

void BluezCentralManager::heard(const std::string& path) {
  const auto* device = objects_.properties(path, kDeviceInterface);
  if (device == nullptr || deviceOfPath(path).empty()) {
    return;
  }
  if (scan_ && scanner_.isRunning()) {
    advertise(path, *device);
  }
  if (auto* const peripheral = knownPeripheral(path)) {
    peripheral->link().deviceSeen();
  }
}

void BluezCentralManager::advertise(const std::string& path, const Dictionary& device) {
  // The filters of all programs that scan are merged into one, so what comes is more than we asked
  // for.
  if (!isWanted(path, device, scan_->services) ||
      (!scan_->reported.insert(path).second && !scan_->reportsDuplicates)) {
    return;
  }
  deliveries_.deliver([this, scan = std::weak_ptr<Scan>(scan_), peripheral = peripheralOf(path),
                       data = advertisementOfDevice(device), rssi = rssiOfDevice(device)] {
    if (!scan.expired()) {
      tellDelegate([&](CentralManagerDelegate& delegate) {
        delegate.centralManagerDidDiscoverPeripheral(*this, peripheral, data, rssi);
      });
    }
  });
}

// --- Links ---

void BluezCentralManager::connectPeripheral(const std::shared_ptr<Peripheral>& peripheral,
                                            const Dictionary& /*options*/) {
  knownIdentifiers_.insert(peripheral->identifier());
  asBluez(peripheral).connect();
}

void BluezCentralManager::cancelPeripheralConnection(
    const std::shared_ptr<Peripheral>& peripheral) {
  asBluez(peripheral).cancelConnection();
}

void BluezCentralManager::endLeftoverLink(const std::shared_ptr<Peripheral>& peripheral) {
  asBluez(peripheral).link().endLeftover();
}

void BluezCentralManager::didConnect(const std::shared_ptr<Peripheral>& peripheral, Task change) {
  deliveries_.deliverConnectAnswer(
      peripheral.get(), [this, peripheral, change = std::move(change)] {
        change();
        tellDelegate([&](CentralManagerDelegate& delegate) {
          delegate.centralManagerDidConnectPeripheral(*this, peripheral);
        });
      });
}

void BluezCentralManager::didFailToConnect(const std::shared_ptr<Peripheral>& peripheral,
                                           const Error& error, Task change) {
  deliveries_.deliverConnectAnswer(
      peripheral.get(), [this, peripheral, error, change = std::move(change)] {
        change();
        tellDelegate([&](CentralManagerDelegate& delegate) {
          delegate.centralManagerDidFailToConnectPeripheral(*this, peripheral, error);
        });
      });
}

void BluezCentralManager::didDisconnect(const std::shared_ptr<Peripheral>& peripheral,
                                        const ErrorOrNone& error, Task change) {
  deliveries_.deliverDisconnection(
      peripheral.get(), [this, peripheral, error, change = std::move(change)] {
        change();
        tellDelegate([&](CentralManagerDelegate& delegate) {
          delegate.centralManagerDidDisconnectPeripheral(*this, peripheral, error);
        });
      });
}

std::vector<std::shared_ptr<Peripheral>>
BluezCentralManager::retrieveConnectedPeripheralsWithServices(const std::vector<UUID>& services) {
  std::vector<std::shared_ptr<Peripheral>> peripherals;
  if (!isPoweredOn()) {
    return peripherals;
  }
  for (const auto& path : objects_.pathsBelow(adapter_, kDeviceInterface)) {
    const auto& device = *objects_.properties(path, kDeviceInterface);
    if (boolForKey(device, "Connected") && isWanted(path, device, services)) {
      peripherals.push_back(peripheralOf(path));
    }
  }
  return peripherals;
}

std::vector<std::shared_ptr<Peripheral>> BluezCentralManager::retrievePeripheralsWithIdentifiers(
    const std::vector<UUID>& identifiers) {
  std::vector<std::shared_ptr<Peripheral>> peripherals;
  for (const auto& path : adapter_.empty() ? std::vector<std::string>()
                                           : objects_.pathsBelow(adapter_, kDeviceInterface)) {
    const auto& device = *objects_.properties(path, kDeviceInterface);
    if (std::ranges::find(identifiers, identifierOfDevice(device)) != identifiers.end()) {
      peripheralOf(path);
    }
  }
  for (const auto& identifier : identifiers) {
    for (const auto& [device, peripheral] : peripherals_) {
      if (peripheral->identifier() == identifier) {
        peripherals.push_back(peripheral);
      }
    }
  }
  return peripherals;
}

void BluezCentralManager::endLinks() {
  for (const auto& [name, peripheral] : peripherals_) {
    peripheral->link().abandon();
  }
}

}  // namespace wrixel2::platform::bluez
