// The BlueZ central manager over a bluetoothd that says anything in any order: objects, properties
// of every kind, answers, errors and silence.

#include <algorithm>
#include <deque>
#include <map>
#include <set>

#include <fmt/format.h>

#include "fuzz/Check.h"
#include "fuzz/Drive.h"
#include "fuzz/Input.h"
#include "platform/linux/bluez/BluezBus.h"
#include "platform/linux/bluez/BluezRadio.h"
#include "platform/simulated/RecordingLog.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedRunLoop.h"
#include "platform/simulated/SimulatedTimeZone.h"

namespace wrixel2::fuzz {
namespace {

using namespace platform;         // NOLINT(google-build-using-namespace)
using namespace platform::bluez;  // NOLINT(google-build-using-namespace)

constexpr std::string_view kUUIDs[] = {
    "0000fee0-0000-1000-8000-00805f9b34fb", "0000fee1-0000-1000-8000-00805f9b34fb",
    "00002a2b-0000-1000-8000-00805f9b34fb", "00002902-0000-1000-8000-00805f9b34fb", "no uuid"};
constexpr std::string_view kPaths[] = {"/org/bluez/hci0",
                                       "/org/bluez/hci1",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_06",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0010",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0010/char0011",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0010/char0013",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0020",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0020/char0021",
                                       "/org/bluez/hci0/dev_C0_01_02_03_04_05/service0020/char0021/"
                                       "desc0023",
                                       "/org/bluez",
                                       "/"};
constexpr std::string_view kInterfaces[] = {kAdapterInterface,    kDeviceInterface,
                                            kServiceInterface,    kCharacteristicInterface,
                                            kDescriptorInterface, "org.example.Other"};

/// The interface that an object of that path has.
std::string_view interfaceOf(std::string_view path) {
  if (path.find("/desc") != std::string_view::npos) {
    return kDescriptorInterface;
  }
  if (path.find("/char") != std::string_view::npos) {
    return kCharacteristicInterface;
  }
  if (path.find("/service") != std::string_view::npos) {
    return kServiceInterface;
  }
  return path.find("/dev_") != std::string_view::npos ? kDeviceInterface : kAdapterInterface;
}

/// What bluetoothd usually tells of such an object.
Dictionary usual(std::string_view path, std::size_t choice) {
  const auto interface = interfaceOf(path);
  if (interface == kAdapterInterface) {
    return {{"Powered", true}, {"Discovering", false}, {"Roles", Array{"central", "peripheral"}}};
  }
  if (interface == kDeviceInterface) {
    std::string address(path.substr(path.size() - 17));
    std::replace(address.begin(), address.end(), '_', ':');
    return {{"Address", address},  {"AddressType", "random"},
            {"Name", "MI Band 2"}, {"UUIDs", Array{std::string(kUUIDs[0])}},
            {"Connected", false},  {"ServicesResolved", false},
            {"RSSI", -60}};
  }
  return {{"UUID", std::string(kUUIDs[choice % std::size(kUUIDs)])}};
}

Dictionary usualTree() {
  Dictionary tree;
  for (const auto path : kPaths) {
    if (path.starts_with("/org/bluez/hci0")) {
      tree.emplace(std::string(path),
                   Dictionary{{std::string(interfaceOf(path)), usual(path, tree.size())}});
    }
  }
  return tree;
}

/// bluetoothd's side of the bus.
class PlayedBus {
 public:
  struct Pending {
    BluezCall call;
    MonotonicTime deadline;
    BluezBus::Callback callback;
  };

  class End final : public BluezBus {
   public:
    explicit End(PlayedBus& played) : bus_(played) {}
    End(const End&) = delete;
    End& operator=(const End&) = delete;
    ~End() override {
      bus_.listener = nullptr;
      bus_.pending.clear();
    }
    void start(BluezBusListener& user) override { bus_.listener = &user; }
    void call(BluezCall call, TimeInterval timeout, Callback callback) override {
      bus_.pending.push_back(
          {std::move(call), bus_.clock.monotonicNow() + timeout, std::move(callback)});
    }
    void send(BluezCall /*call*/) override {}

   private:
    PlayedBus& bus_;
  };

  explicit PlayedBus(const Clock& usedClock) : clock(usedClock) {}

  void answer(std::size_t index, const BluezReply& reply) {
    if (index < pending.size()) {
      const auto place = pending.begin() + static_cast<std::ptrdiff_t>(index);
      const Pending answered = std::move(*place);
      pending.erase(place);
      answered.callback(reply);
    }
  }
  /// Calls whose time is up are answered as the bus does it.
  void expire() {
    while (!pending.empty() && pending.front().deadline <= clock.monotonicNow()) {
      answer(0, {{}, "org.freedesktop.DBus.Error.NoReply", "It took too long"});
    }
  }

  const Clock& clock;
  BluezBusListener* listener = nullptr;
  std::deque<Pending> pending;
};

/// Holds what the delegates are told against the contract of the central manager.
class Listener final : public CentralManagerDelegate, public PeripheralDelegate {
 public:
  bool isScanning = false;
  std::map<const Peripheral*, std::shared_ptr<Peripheral>> known;
  std::vector<std::shared_ptr<Service>> services;
  std::vector<std::shared_ptr<Characteristic>> characteristics;
  /// Requests of the kinds that are answered once, less the answers.
  int unanswered = 0;

 private:
  void centralManagerDidUpdateState(CentralManager& central) override {
    if (central.state() != CentralState::poweredOn) {
      check(connected_.empty(), "links end before the state is told");
    }
  }
  void centralManagerDidDiscoverPeripheral(CentralManager& /*central*/,
                                           const std::shared_ptr<Peripheral>& peripheral,
                                           const Dictionary& /*data*/, int /*rssi*/) override {
    check(isScanning, "advertisements come while we scan");
    known.emplace(peripheral.get(), peripheral);
  }
  void centralManagerDidConnectPeripheral(CentralManager& /*central*/,
                                          const std::shared_ptr<Peripheral>& peripheral) override {
    connected_.insert(peripheral.get());
    check(peripheral->state() == PeripheralState::connected, "who is connected reads so");
  }
  void centralManagerDidDisconnectPeripheral(CentralManager& /*central*/,
                                             const std::shared_ptr<Peripheral>& peripheral,
                                             const ErrorOrNone& /*error*/) override {
    connected_.erase(peripheral.get());
    check(peripheral->services().empty(), "services go with the link");
  }
  void centralManagerDidFailToConnectPeripheral(CentralManager& /*central*/,
                                                const std::shared_ptr<Peripheral>& /*peripheral*/,
                                                const ErrorOrNone& error) override {
    check(error.has_value(), "a failure has an error");
  }

  void answered() {
    --unanswered;
    check(unanswered >= 0, "a request has one answer");
  }
  void peripheralDidDiscoverServices(const std::shared_ptr<Peripheral>& peripheral,
                                     const ErrorOrNone& /*error*/) override {
    answered();
    for (const auto& service : peripheral->services()) {
      services.push_back(service);
    }
  }
  void peripheralDidDiscoverCharacteristicsForService(
      const std::shared_ptr<Peripheral>& /*peripheral*/, const std::shared_ptr<Service>& service,
      const ErrorOrNone& /*error*/) override {
    answered();
    for (const auto& characteristic : service->characteristics()) {
      characteristics.push_back(characteristic);
    }
  }
  void peripheralDidDiscoverDescriptorsForCharacteristic(
      const std::shared_ptr<Peripheral>& /*peripheral*/,
      const std::shared_ptr<Characteristic>& /*characteristic*/,
      const ErrorOrNone& /*error*/) override {
    answered();
  }
  void peripheralDidUpdateNotificationStateForCharacteristic(
      const std::shared_ptr<Peripheral>& /*peripheral*/,
      const std::shared_ptr<Characteristic>& /*characteristic*/,
      const ErrorOrNone& /*error*/) override {
    answered();
  }
  void peripheralDidWriteValueForCharacteristic(
      const std::shared_ptr<Peripheral>& /*peripheral*/,
      const std::shared_ptr<Characteristic>& /*characteristic*/,
      const ErrorOrNone& /*error*/) override {
    answered();
  }

  std::set<const Peripheral*> connected_;
};

class Machine {
 public:
  explicit Machine(Input& input) {
    std::optional<std::string> adapter;
    if (input.below(4) == 0) {
      adapter = "hci0";
    }
    radio_ = std::make_unique<BluezRadio>([this] { return std::make_unique<PlayedBus::End>(bus_); },
                                          loop_, clock_, log_, adapter);
    manager_ = radio_->makeCentralManager(listener_, loop_.makeSerialQueue("fuzz"), {});
    if (input.flag()) {
      bus_.listener->bluezOwnerChanged(true);
      bus_.answer(0, {{usualTree()}, {}, {}});
    }
    loop_.runUntilIdle();
  }
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;
  ~Machine() {
    manager_.reset();
    radio_.reset();
    loop_.discardWork();
  }

  void happen(Input& input) {
    switch (input.below(6)) {
      case 0:
      case 1:
        tell(input);
        break;
      case 2:
        answer(input);
        break;
      case 3:
        use(input);
        break;
      case 4:
        request(input);
        break;
      default:
        loop_.runFor(input.pause() / 32);
        break;
    }
    if (input.flag()) {
      loop_.runUntilIdle();
    }
    bus_.expire();
    log_.clear();
  }

  /// A bluetoothd that is well again is made use of, and nobody waits for an answer any more.
  void recover() {
    loop_.runUntilIdle();
    bus_.pending.clear();
    bus_.listener->bluezOwnerChanged(false);
    loop_.runUntilIdle();
    check(listener_->unanswered == 0, "every request has been answered");
    check(manager_->state() != CentralState::poweredOn, "without bluetoothd there is no radio");
    bus_.listener->bluezOwnerChanged(true);
    for (int turn = 0; turn < 40 && manager_->state() != CentralState::poweredOn; ++turn) {
      while (!bus_.pending.empty()) {
        const bool asksForObjects = bus_.pending.front().call.member == "GetManagedObjects";
        bus_.answer(0, {asksForObjects ? Array{usualTree()} : Array{}, {}, {}});
      }
      loop_.runFor(std::chrono::seconds(1));
    }
    check(manager_->state() == CentralState::poweredOn, "with bluetoothd the radio is there");
  }

 private:
  static Dictionary properties(Input& input, std::string_view path) {
    constexpr std::string_view kNames[] = {
        "Powered",          "Discovering", "Roles", "Address", "AddressType",  "Name", "UUIDs",
        "ServicesResolved", "Connected",   "RSSI",  "Value",   "ServicesData", "Flags"};
    if (input.below(4) == 0) {
      return input.dictionary(kNames, 2);
    }
    auto known = usual(path, input.byte());
    for (const std::string_view name : {"Powered", "Connected", "ServicesResolved"}) {
      if (input.flag()) {
        known.insert_or_assign(std::string(name), input.flag());
      }
    }
    if (input.below(4) == 0) {
      known.insert_or_assign("Value", input.bytes(24));
    }
    return known;
  }
  void tell(Input& input) {
    const std::string path(input.oneOf(kPaths));
    const std::string interface(input.below(8) == 0 ? input.oneOf(kInterfaces) : interfaceOf(path));
    switch (input.below(9)) {
      case 0:
        bus_.listener->interfacesAdded(path, {{interface, properties(input, path)}});
        break;
      case 1:
        bus_.listener->interfacesAdded(path, input.dictionary(kInterfaces, 2));
        break;
      case 2:
        bus_.listener->interfacesRemoved(path, {interface});
        break;
      case 3:
      case 4:
      case 5:
        bus_.listener->propertiesChanged(path, interface, properties(input, path), {});
        break;
      case 6:
        bus_.listener->deviceDisconnected(
            path, input.flag() ? "org.bluez.Reason.Timeout" : input.text(12));
        break;
      case 7:
        bus_.pending.clear();
        bus_.listener->bluezOwnerChanged(input.flag());
        break;
      default:
        bus_.pending.clear();
        bus_.listener->busUnavailable({111, "No bus"});
        break;
    }
  }
  void answer(Input& input) {
    const std::size_t index = input.below(std::max<std::size_t>(bus_.pending.size(), 1));
    if (index >= bus_.pending.size()) {
      return;
    }
    constexpr std::string_view kErrors[] = {"org.bluez.Error.Failed",
                                            "org.bluez.Error.NotReady",
                                            "org.bluez.Error.InProgress",
                                            "org.bluez.Error.AlreadyConnected",
                                            "org.bluez.Error.NotAuthorized",
                                            "org.freedesktop.DBus.Error.UnknownObject",
                                            "org.freedesktop.DBus.Error.AccessDenied"};
    constexpr std::string_view kTexts[] = {"", "le-connection-abort-by-local",
                                           "Operation failed with ATT error: 0x0e",
                                           "Not connected"};
    BluezReply reply;
    switch (input.below(4)) {
      case 0:
        reply.errorName = input.oneOf(kErrors);
        reply.errorText = input.oneOf(kTexts);
        break;
      case 1:
        reply.values.push_back(input.value(3));
        break;
      default:
        if (bus_.pending[index].call.member == "GetManagedObjects") {
          reply.values.push_back(usualTree());
        } else if (bus_.pending[index].call.member == "ReadValue") {
          reply.values.push_back(input.bytes(24));
        }
        break;
    }
    bus_.answer(index, reply);
  }

  std::shared_ptr<Peripheral> peripheral(Input& input) {
    auto place = listener_->known.begin();
    std::advance(place, static_cast<std::ptrdiff_t>(input.below(listener_->known.size())));
    place->second->setDelegate(listener_);
    return place->second;
  }
  /// What a session does with the radio.
  void use(Input& input) {
    for (const auto& found : manager_->retrieveConnectedPeripheralsWithServices(
             {UUID::withString("fee0"), UUID::withString("fee1")})) {
      listener_->known.emplace(found.get(), found);
    }
    switch (input.below(6)) {
      case 0:
        listener_->isScanning = true;
        manager_->scanForPeripheralsWithServices(
            input.flag() ? std::nullopt
                         : std::optional(std::vector<UUID>{UUID::withString("fee0")}),
            {{std::string(kScanOptionAllowDuplicates), input.flag()}});
        break;
      case 1:
        manager_->stopScan();
        listener_->isScanning = false;
        break;
      case 2:
      case 3:
        if (!listener_->known.empty()) {
          manager_->connectPeripheral(peripheral(input), {});
        }
        break;
      case 4:
        if (!listener_->known.empty()) {
          manager_->endLeftoverLink(peripheral(input));
        }
        break;
      default:
        if (!listener_->known.empty()) {
          manager_->cancelPeripheralConnection(peripheral(input));
        }
        break;
    }
  }
  void request(Input& input) {
    if (listener_->known.empty()) {
      return;
    }
    const auto device = peripheral(input);
    const std::size_t what = input.below(7);
    if (what == 0) {
      ++listener_->unanswered;
      device->discoverServices(std::nullopt);
    } else if (what == 1 && !listener_->services.empty()) {
      const auto& service = listener_->services[input.byte() % listener_->services.size()];
      ++listener_->unanswered;
      device->discoverCharacteristics(std::nullopt, service);
    } else if (what >= 2 && !listener_->characteristics.empty()) {
      const auto& characteristics = listener_->characteristics;
      requestOf(input, *device, characteristics[input.byte() % characteristics.size()], what);
    }
  }
  void requestOf(Input& input, Peripheral& device, const std::shared_ptr<Characteristic>& of,
                 std::size_t what) {
    switch (what) {
      case 2:
        ++listener_->unanswered;
        device.discoverDescriptors(of);
        break;
      case 3:
        device.readValueForCharacteristic(of);
        break;
      case 4:
        ++listener_->unanswered;
        device.setNotifyValue(input.flag(), of);
        break;
      default: {
        const bool isAcknowledged = what == 5;
        listener_->unanswered += isAcknowledged ? 1 : 0;
        device.writeValueForCharacteristic(
            input.bytes(20), of,
            isAcknowledged ? WriteType::withResponse : WriteType::withoutResponse);
        break;
      }
    }
  }

  simulated::SimulatedClock clock_;
  simulated::SimulatedTimeZone zone_;
  simulated::SimulatedRunLoop loop_{clock_, zone_};
  simulated::RecordingLog log_;
  PlayedBus bus_{clock_};
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>();
  std::unique_ptr<BluezRadio> radio_;
  std::unique_ptr<CentralManager> manager_;
};

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  Machine machine(input);
  drive(machine, input, 80);
  return 0;
}
