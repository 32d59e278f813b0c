#include "bandradio/BluezGattServer.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <optional>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "band/BandProfile.h"
#include "band/VirtualBand.h"

namespace wrixel2::bandradio {

using platform::Array;
using platform::Bytes;
using platform::ByteView;
using platform::Dictionary;
using platform::Error;
using platform::ErrorOrNone;
using platform::UUID;
using platform::Value;
using platform::linux::BusMessage;

namespace {

constexpr std::string_view kRootPath = "/org/corvale/wrixel2/VirtualBand";
constexpr const char* kBluez = "org.bluez";
constexpr const char* kServiceInterface = "org.bluez.GattService1";
constexpr const char* kCharacteristicInterface = "org.bluez.GattCharacteristic1";
constexpr const char* kManagerInterface = "org.bluez.GattManager1";
constexpr std::chrono::seconds kRegistrationTimeout{60};

std::string servicePath(std::size_t service) {
  return fmt::format("{}/service{}", kRootPath, service);
}

std::string characteristicPath(std::size_t service, std::size_t characteristic) {
  return fmt::format("{}/char{}", servicePath(service), characteristic);
}

/// Of a characteristic that takes both kinds of write, the one that hosts use for it. Offered with
/// both, bluetoothd would answer every write itself: refusals would get lost, and with them what
/// kind a write was.
unsigned offeredProperties(const band::BandCharacteristic& characteristic) {
  namespace property = band::characteristic_property;
  constexpr unsigned kBoth = property::write | property::writeWithoutResponse;
  if ((characteristic.properties & kBoth) != kBoth) {
    return characteristic.properties;
  }
  const platform::UUID kAcknowledged[] = {band::kCurrentTime, band::kNewAlert, band::kAlertControl,
                                          band::kHeartRateControl};
  const bool isAcknowledged =
      std::ranges::find(kAcknowledged, characteristic.uuid) != std::end(kAcknowledged);
  return characteristic.properties &
         ~(isAcknowledged ? property::writeWithoutResponse : property::write);
}

Array flagsOf(const band::BandCharacteristic& characteristic) {
  namespace property = band::characteristic_property;
  constexpr std::pair<unsigned, const char*> kNames[] = {
      {property::read, "read"},
      {property::writeWithoutResponse, "write-without-response"},
      {property::write, "write"},
      {property::notify, "notify"}};
  Array flags;
  for (const auto& [bit, name] : kNames) {
    if ((offeredProperties(characteristic) & bit) != 0) {
      flags.emplace_back(name);
    }
  }
  return flags;
}

platform::ExportedProperty constant(const char* name, const char* signature, Value value) {
  return {name, signature, [value = std::move(value)] { return value; }, nullptr};
}

/// bluetoothd makes error codes of the attribute protocol from these names.
void replyAttributeError(const BusMessage& call, const Error& error) {
  const char* const name = [&error] {
    switch (error.code) {
      case band::att_error::readNotPermitted:
      case band::att_error::writeNotPermitted:
        return "org.bluez.Error.NotPermitted";
      case band::att_error::insufficientAuthentication:
        // As "insufficient authorization": the code of this name would make a host ask for pairing,
        // which the band knows nothing of.
        return "org.bluez.Error.NotAuthorized";
      case band::att_error::requestNotSupported:
        return "org.bluez.Error.NotSupported";
      case band::att_error::invalidAttributeValueLength:
        return "org.bluez.Error.InvalidValueLength";
      default:
        return "org.bluez.Error.Failed";
    }
  }();
  call.replyError(name, error.localizedDescription);
}

/// The argument at the place if it is a dictionary: BlueZ's options of reads and writes.
const Dictionary& optionsAt(const Array& arguments, std::size_t place) {
  static const Dictionary kNone;
  const Dictionary* options = place < arguments.size() ? arguments[place].dictionary() : nullptr;
  return options != nullptr ? *options : kNone;
}

/// Whether the host awaits no answer to its write. bluetoothd may say so; 5.66 does not, but does
/// not await one itself then.
bool isCommand(const BusMessage& call, const Dictionary& options) {
  const auto type = platform::textForKey(options, "type");
  return type ? *type == "command" : sd_bus_message_get_expect_reply(call.get()) == 0;
}

}  // namespace

BluezGattServer::BluezGattServer(platform::linux::BusConnection& bus, std::string adapterPath,
                                 band::VirtualBand& band, platform::Log& log, Callbacks callbacks)
    : bus_(bus),
      adapterPath_(std::move(adapterPath)),
      band_(band),
      logger_(log, "BluezGattServer"),
      callbacks_(std::move(callbacks)) {}

ErrorOrNone BluezGattServer::start() {
  if (auto error = exportObjects()) {
    return error;
  }
  if (auto error = watchBluetoothd()) {
    return error;
  }
  registerApplication();
  return std::nullopt;
}

ErrorOrNone BluezGattServer::exportObjects() {
  sd_bus_slot* manager = nullptr;
  const int result =
      sd_bus_add_object_manager(bus_.get(), &manager, std::string(kRootPath).c_str());
  if (result < 0) {
    return platform::errorFromErrno(-result, "The band's objects cannot be put on the bus");
  }
  slots_.emplace_back(manager);

  const auto add = [this](const std::string& path,
                          platform::linux::BusInterface interface) -> ErrorOrNone {
    auto slot = bus_.addInterface(path, std::move(interface));
    if (!slot) {
      return slot.error();
    }
    slots_.push_back(std::move(*slot));
    return std::nullopt;
  };
  const auto& services = band::bandServices();
  for (std::size_t service = 0; service < services.size(); ++service) {
    const UUID& uuid = services[service].uuid;
    platform::linux::BusInterface interface;
    interface.name = kServiceInterface;
    interface.properties = {constant("UUID", "s", uuid.longText()), constant("Primary", "b", true)};
    if (auto error = add(servicePath(service), std::move(interface))) {
      return error;
    }
    const auto& characteristics = services[service].characteristics;
    for (std::size_t at = 0; at < characteristics.size(); ++at) {
      if (auto error =
              add(characteristicPath(service, at),
                  characteristicInterface(uuid, characteristics[at], servicePath(service)))) {
        return error;
      }
    }
  }
  return std::nullopt;
}

platform::linux::BusInterface BluezGattServer::characteristicInterface(
    const UUID& service, const band::BandCharacteristic& characteristic,
    const std::string& servicePath) {
  const UUID uuid = characteristic.uuid;
  platform::linux::BusInterface interface;
  interface.name = kCharacteristicInterface;
  interface.properties = {constant("UUID", "s", uuid.longText()),
                          constant("Service", "o", servicePath),
                          constant("Flags", "as", flagsOf(characteristic))};
  interface.methods = {
      {"ReadValue",
       {{"options", "a{sv}"}},
       {{"value", "ay"}},
       [this, service, uuid](const BusMessage& call) { read(service, uuid, call); }},
      {"WriteValue",
       {{"value", "ay"}, {"options", "a{sv}"}},
       {},
       [this, service, uuid](const BusMessage& call) { write(service, uuid, call); }},
      {"StartNotify",
       {},
       {},
       [this, service, uuid](const BusMessage& call) { subscribe(service, uuid, true, call); }},
      {"StopNotify", {}, {}, [this, service, uuid](const BusMessage& call) {
         subscribe(service, uuid, false, call);
       }}};
  return interface;
}

void BluezGattServer::read(const UUID& service, const UUID& characteristic,
                           const BusMessage& call) {
  callbacks_.beforeRequest();
  const auto arguments = call.arguments();
  const auto value = band_.read(service, characteristic);
  if (!value) {
    replyAttributeError(call, value.error());
    return;
  }
  // A host reads what does not fit into one answer from an offset on.
  const auto offset = static_cast<std::size_t>(
      arguments ? platform::intForKey(optionsAt(*arguments, 0), "offset") : 0);
  if (offset > value->size()) {
    call.replyError("org.bluez.Error.InvalidOffset", "The value is shorter");
    return;
  }
  call.reply("ay", {Bytes(value->begin() + static_cast<std::ptrdiff_t>(offset), value->end())});
}

void BluezGattServer::write(const UUID& service, const UUID& characteristic,
                            const BusMessage& call) {
  callbacks_.beforeRequest();
  const auto arguments = call.arguments();
  const Bytes* const value = arguments && !arguments->empty() ? arguments->front().data() : nullptr;
  if (value == nullptr) {
    call.replyError("org.bluez.Error.Failed", "A write without a value");
    return;
  }
  const Dictionary& options = optionsAt(*arguments, 1);
  if (platform::intForKey(options, "offset") != 0) {
    call.replyError("org.bluez.Error.InvalidOffset", "Values are written whole");
    return;
  }
  const auto type = isCommand(call, options) ? platform::WriteType::withoutResponse
                                             : platform::WriteType::withResponse;
  if (const auto error = band_.write(service, characteristic, *value, type)) {
    replyAttributeError(call, *error);
    return;
  }
  call.reply({}, {});
}

void BluezGattServer::subscribe(const UUID& service, const UUID& characteristic, bool enabled,
                                const BusMessage& call) {
  callbacks_.beforeRequest();
  // bluetoothd has told the host already, and at the end of a link it says for each subscription
  // that it has ended: a refusal here reaches nobody.
  if (const auto error = band_.subscribe(service, characteristic, enabled)) {
    replyAttributeError(call, *error);
    return;
  }
  call.reply({}, {});
}

void BluezGattServer::notify(const UUID& service, const UUID& characteristic, const Bytes& value) {
  const auto& services = band::bandServices();
  for (std::size_t at = 0; at < services.size(); ++at) {
    const auto& characteristics = services[at].characteristics;
    for (std::size_t which = 0; which < characteristics.size(); ++which) {
      if (services[at].uuid == service && characteristics[which].uuid == characteristic) {
        if (const auto error = bus_.emitSignal(
                characteristicPath(at, which), "org.freedesktop.DBus.Properties",
                "PropertiesChanged", "sa{sv}as",
                {kCharacteristicInterface, Dictionary{{"Value", value}}, Array{}})) {
          logger_.warning("Cannot notify: " + platform::description(*error));
        }
        return;
      }
    }
  }
}

ErrorOrNone BluezGattServer::watchBluetoothd() {
  auto owner = bus_.watchOwner(kBluez, [this](const std::string& newOwner) {
    if (newOwner.empty()) {
      registration_.reset();
      setIsRegistered(false);
    } else {
      registerApplication();
    }
  });
  if (!owner) {
    return owner.error();
  }
  slots_.push_back(std::move(*owner));

  const auto watch = [this](const char* member, bool appears) -> ErrorOrNone {
    auto slot = bus_.addMatch(
        fmt::format("type='signal',sender='{}',interface='org.freedesktop.DBus.ObjectManager',"
                    "member='{}',arg0path='{}'",
                    kBluez, member, adapterPath_),
        [this, appears](const BusMessage& message) {
          const auto arguments = message.arguments();
          const std::string* const path =
              arguments && !arguments->empty() ? arguments->front().text() : nullptr;
          if (path == nullptr || *path != adapterPath_) {
            return;
          }
          if (appears) {
            registerApplication();
          } else {
            setIsRegistered(false);
          }
        });
    if (!slot) {
      return slot.error();
    }
    slots_.push_back(std::move(*slot));
    return std::nullopt;
  };
  if (auto error = watch("InterfacesAdded", true)) {
    return error;
  }
  return watch("InterfacesRemoved", false);
}

void BluezGattServer::registerApplication() {
  if (isRegistered_) {
    return;
  }
  const auto failed = [this](const Error& error) {
    logger_.warning("The band's services are not registered: " + platform::description(error));
  };
  auto call = bus_.newMethodCall({kBluez, adapterPath_, kManagerInterface}, "RegisterApplication",
                                 "oa{sv}", {kRootPath, Dictionary{}});
  if (!call) {
    failed(call.error());
    return;
  }
  call->setAutoStart(false);
  // Not to be waited for: before it answers, bluetoothd asks for the objects.
  auto slot = bus_.callAsync(
      *call,
      [this, failed](const BusMessage& reply) {
        if (reply.isError() && reply.errorName() != "org.bluez.Error.AlreadyExists") {
          failed(reply.error());
        } else {
          setIsRegistered(true);
        }
      },
      kRegistrationTimeout);
  if (!slot) {
    failed(slot.error());
    return;
  }
  registration_ = std::move(*slot);
}

void BluezGattServer::setIsRegistered(bool isRegistered) {
  if (isRegistered != isRegistered_) {
    isRegistered_ = isRegistered;
    callbacks_.registration(isRegistered);
  }
}

}  // namespace wrixel2::bandradio
