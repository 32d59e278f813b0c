#include "tests/platform/linux/bluez/FakeBluetoothd.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "band/BandProfile.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {
namespace {

using linux::BusInterface;
using linux::BusMessage;
using linux::BusMethod;

const std::string kAdapterPath = "/org/bluez/hci0";
const std::vector<ExportedArgument> kOptions = {{"options", "a{sv}"}};

std::string withUnderlines(std::string address) {
  std::ranges::transform(address, address.begin(), [](char character) {
    return character == ':' ? '_' : static_cast<char>(std::toupper(character));
  });
  return address;
}

void replyDone(const BusMessage& call) { call.reply("", {}); }

void replyTo(const BusMessage& call, const ErrorOrNone& error) {
  if (error) {
    call.replyError("org.bluez.Error.Failed",
                    fmt::format("Operation failed with ATT error: 0x{:02x}", error->code));
  } else {
    replyDone(call);
  }
}

}  // namespace

FakeBluetoothd::FakeBluetoothd(linux::BusConnection& bus, band::VirtualBand& band)
    : bus_(bus), band_(band), devicePath_(kAdapterPath + "/dev_" + withUnderlines(band.address())) {
  band_.setRadio(this);
  sd_bus_slot* slot = nullptr;
  sd_bus_add_object_manager(bus_.get(), &slot, "/");
  slots_.emplace_back(slot);
  exportAdapter();
  exportDevice();
}

FakeBluetoothd::~FakeBluetoothd() { band_.setRadio(nullptr); }

void FakeBluetoothd::appear() {
  if (const auto error = bus_.requestName(std::string(kBluezName))) {
    complaints.push_back(description(error));
  }
}

void FakeBluetoothd::vanish() {
  bus_.releaseName(std::string(kBluezName));
  if (std::exchange(isConnected_, false)) {
    band_.linkDown();
  }
  areResolved_ = false;
}

BusMethod FakeBluetoothd::method(std::string name, std::vector<ExportedArgument> in,
                                 std::vector<ExportedArgument> out,
                                 std::function<void(const BusMessage& call)> handle) {
  return {name, std::move(in), std::move(out),
          [this, name, handle = std::move(handle)](const BusMessage& call) {
            calls.push_back(name);
            if (sd_bus_message_get_auto_start(call.get()) != 0) {
              complaints.push_back(name + " may start bluetoothd");
            }
            if (diesAt == name) {
              diesAt.clear();
              vanish();
            } else {
              handle(call);
            }
          }};
}

void FakeBluetoothd::exportAt(const std::string& path, BusInterface interface) {
  auto slot = bus_.addInterface(path, std::move(interface));
  if (slot) {
    slots_.push_back(std::move(*slot));
  } else {
    complaints.push_back(description(slot.error()));
  }
}

void FakeBluetoothd::changed(const std::string& path, std::string_view interface,
                             const char* property) {
  sd_bus_emit_properties_changed(bus_.get(), path.c_str(), std::string(interface).c_str(), property,
                                 nullptr);
}

// --- Adapter ---

void FakeBluetoothd::exportAdapter() {
  BusInterface adapter;
  adapter.name = kAdapterInterface;
  const auto setDiscovering = [this](const BusMessage& call, bool isOn) {
    isDiscovering_ = isOn;
    changed(kAdapterPath, kAdapterInterface, "Discovering");
    replyDone(call);
    advertise();
  };
  adapter.methods = {
      method("SetDiscoveryFilter", {{"filter", "a{sv}"}}, {},
             [this](const BusMessage& call) { setDiscoveryFilter(call); }),
      method("StartDiscovery", {}, {}, [=](const BusMessage& call) { setDiscovering(call, true); }),
      method("StopDiscovery", {}, {},
             [=](const BusMessage& call) { setDiscovering(call, false); })};
  adapter.properties = {{"Powered", "b", [this] { return isPowered_; }, {}},
                        {"Discovering", "b", [this] { return isDiscovering_; }, {}},
                        {"Roles", "as", [] { return Array{"central", "peripheral"}; }, {}}};
  exportAt(kAdapterPath, std::move(adapter));
}

void FakeBluetoothd::setIsPowered(bool isPowered) {
  // The links go first, as on a real adapter.
  if (!isPowered) {
    disconnect();
  }
  isPowered_ = isPowered;
  changed(kAdapterPath, kAdapterInterface, "Powered");
}

// A filter whose entries are of other types is refused.
void FakeBluetoothd::setDiscoveryFilter(const BusMessage& call) {
  static const std::map<std::string, std::string> kTypes = {
      {"Transport", "s"}, {"DuplicateData", "b"}, {"RSSI", "n"}, {"UUIDs", "as"}};
  auto* const message = call.get();
  sd_bus_message_rewind(message, 1);
  sd_bus_message_enter_container(message, 'a', "{sv}");
  while (sd_bus_message_enter_container(message, 'e', "sv") > 0) {
    const char* name = nullptr;
    const char* type = nullptr;
    sd_bus_message_read_basic(message, 's', &name);
    sd_bus_message_peek_type(message, nullptr, &type);
    const auto expected = kTypes.find(name);
    if (expected == kTypes.end() || expected->second != type) {
      call.replyError("org.bluez.Error.InvalidArguments", name);
      complaints.push_back(fmt::format("a filter with {} of type {}", name, type));
      return;
    }
    sd_bus_message_skip(message, "v");
    sd_bus_message_exit_container(message);
  }
  replyDone(call);
}

// --- Device ---

void FakeBluetoothd::exportDevice() {
  BusInterface device;
  device.name = kDeviceInterface;
  device.methods = {method("Connect", {}, {}, [this](const BusMessage& call) { connect(call); }),
                    method("Disconnect", {}, {}, [this](const BusMessage& call) {
                      disconnect();
                      replyDone(call);
                    })};
  const auto advertisement = band_.advertisement();
  const Bytes& entry = advertisement.manufacturerData;
  const Dictionary companies = {
      {std::to_string(entry[0] | entry[1] << 8), Bytes(entry.begin() + 2, entry.end())}};
  Array uuids;
  for (const auto& uuid : advertisement.services) {
    uuids.emplace_back(uuid.longText());
  }
  device.properties = {{"Address", "s", [this] { return band_.address(); }, {}},
                       {"AddressType", "s", [] { return "random"; }, {}},
                       {"Name", "s", [this] { return band_.name(); }, {}},
                       {"Alias", "s", [this] { return band_.name(); }, {}},
                       {"UUIDs", "as", [uuids] { return uuids; }, {}},
                       {"RSSI", "n", [] { return -60; }, {}},
                       {"ManufacturerData", "a{qv}", [companies] { return companies; }, {}},
                       {"Connected", "b", [this] { return isConnected_; }, {}},
                       {"ServicesResolved", "b", [this] { return areResolved_; }, {}}};
  device.signals = {{"Disconnected", {{"reason", "s"}, {"message", "s"}}}};
  exportAt(devicePath_, std::move(device));
}

void FakeBluetoothd::advertise() {
  if (isDiscovering_ && band_.isAdvertising()) {
    changed(devicePath_, kDeviceInterface, "ManufacturerData");
  }
}

void FakeBluetoothd::connect(const BusMessage& call) {
  if (!std::exchange(isConnected_, true)) {
    band_.linkUp();
    changed(devicePath_, kDeviceInterface, "Connected");
  }
  replyDone(call);
  if (gattPaths_.empty()) {
    exportServices();
  }
  // The news that the services are known overtakes the announcement of the last of them.
  areResolved_ = true;
  changed(devicePath_, kDeviceInterface, "ServicesResolved");
  for (const auto& path : gattPaths_) {
    sd_bus_emit_object_added(bus_.get(), path.c_str());
  }
}

void FakeBluetoothd::disconnect() {
  if (!isConnected_) {
    return;
  }
  areResolved_ = false;
  changed(devicePath_, kDeviceInterface, "ServicesResolved");
  isConnected_ = false;
  changed(devicePath_, kDeviceInterface, "Connected");
  band_.linkDown();
}

void FakeBluetoothd::endLinkBecause(const std::string& reason) {
  if (const auto error = bus_.emitSignal(devicePath_, std::string(kDeviceInterface), "Disconnected",
                                         "ss", {reason, "as the test says"})) {
    complaints.push_back(description(error));
  }
  disconnect();
}

ErrorOrNone FakeBluetoothd::endLink(long code) {
  endLinkBecause(code == bluetooth_error::connectionTimeout ? "org.bluez.Reason.Timeout"
                                                            : "org.bluez.Reason.Remote");
  return std::nullopt;
}

// --- Services ---

void FakeBluetoothd::exportServices() {
  unsigned handle = 0x10;
  for (const auto& service : band::bandServices()) {
    const std::string servicePath = fmt::format("{}/service{:04x}", devicePath_, handle++);
    BusInterface interface;
    interface.name = kServiceInterface;
    interface.properties = {{"UUID", "s", [uuid = service.uuid] { return uuid.longText(); }, {}}};
    gattPaths_.push_back(servicePath);
    exportAt(servicePath, std::move(interface));
    for (const auto& characteristic : service.characteristics) {
      const std::string path = fmt::format("{}/char{:04x}", servicePath, handle++);
      gattPaths_.push_back(path);
      pathOf_[{service.uuid, characteristic.uuid}] = path;
      exportAt(path, characteristicInterface(path, service.uuid, characteristic));
    }
  }
}

BusInterface FakeBluetoothd::characteristicInterface(
    const std::string& path, const UUID& service, const band::BandCharacteristic& characteristic) {
  BusInterface interface;
  interface.name = kCharacteristicInterface;
  const auto uuid = characteristic.uuid;
  const auto subscribe = [this, service, uuid](const BusMessage& call, bool enabled) {
    replyTo(call, band_.subscribe(service, uuid, enabled));
  };
  interface.methods = {
      method("ReadValue", kOptions, {{"value", "ay"}},
             [this, path, service, uuid](const BusMessage& call) {
               const auto value = band_.read(service, uuid);
               if (!value) {
                 replyTo(call, value.error());
                 return;
               }
               // What was read is announced like a notification, just before the answer.
               values_[path] = *value;
               changed(path, kCharacteristicInterface, "Value");
               call.reply("ay", {*value});
             }),
      method("WriteValue", {{"value", "ay"}, kOptions.front()}, {},
             [this, service, uuid](const BusMessage& call) {
               const auto arguments = call.arguments();
               const auto type = textForKey(*(*arguments)[1].dictionary(), "type").value_or("");
               if (type != "request" && type != "command") {
                 complaints.push_back("a write of type \"" + type + "\"");
               }
               replyTo(call, band_.write(service, uuid, *(*arguments)[0].data(),
                                         type == "command" ? WriteType::withoutResponse
                                                           : WriteType::withResponse));
             }),
      method("StartNotify", {}, {}, [subscribe](const BusMessage& call) { subscribe(call, true); }),
      method("StopNotify", {}, {},
             [subscribe](const BusMessage& call) { subscribe(call, false); })};
  interface.properties = {{"UUID", "s", [uuid] { return uuid.longText(); }, {}},
                          {"Value", "ay", [this, path] { return values_[path]; }, {}}};
  return interface;
}

void FakeBluetoothd::notify(const UUID& service, const UUID& characteristic, const Bytes& value) {
  const auto& path = pathOf_.at({service, characteristic});
  values_[path] = value;
  changed(path, kCharacteristicInterface, "Value");
}

}  // namespace wrixel2::platform::bluez
