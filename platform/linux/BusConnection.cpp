#include "platform/linux/BusConnection.h"

#include <utility>

#include <errno.h>
#include <fmt/format.h>
#include <stdlib.h>

#include "platform/linux/BusValues.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {
namespace {

const BusAddress kBusDriver{"org.freedesktop.DBus", "/org/freedesktop/DBus",
                            "org.freedesktop.DBus"};
constexpr const char* kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr const char* kLocalInterface = "org.freedesktop.DBus.Local";
constexpr const char* kSystemBusSocket = "unix:path=/run/dbus/system_bus_socket";

// As a value in a D-Bus address, where all but these characters are written as %xx.
std::string addressValue(std::string_view text) {
  std::string value;
  for (const char character : text) {
    const bool isPlain = (character >= 'a' && character <= 'z') ||
                         (character >= 'A' && character <= 'Z') ||
                         (character >= '0' && character <= '9') ||
                         std::string_view("-_/.\\*").find(character) != std::string_view::npos;
    value += isPlain ? std::string(1, character)
                     : fmt::format("%{:02x}", static_cast<unsigned char>(character));
  }
  return value;
}

// The environment is read here, and not by sd-bus, because sd-bus leaves it aside in a program with
// file capabilities, and one such capability is what lets us wake the phone.
Result<std::string> sessionAddress() {
  if (const char* address = ::getenv("DBUS_SESSION_BUS_ADDRESS")) {
    return std::string(address);
  }
  if (const char* directory = ::getenv("XDG_RUNTIME_DIR")) {
    return "unix:path=" + addressValue(std::string(directory) + "/bus");
  }
  return Error{ENOENT,
               "There is no session bus: neither DBUS_SESSION_BUS_ADDRESS nor XDG_RUNTIME_DIR is "
               "set"};
}

std::string systemAddress() {
  const char* address = ::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address == nullptr ? kSystemBusSocket : address;
}

using Callback = BusConnection::Callback;

int callBack(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
  (*static_cast<Callback*>(userdata))(BusMessage::referringTo(message));
  return 0;
}

void deleteCallback(void* userdata) { delete static_cast<Callback*>(userdata); }

// Ties the callback's life to the slot's: sd-bus keeps a slot whose callback is running.
Result<BusSlot> slotWithCallback(int result, sd_bus_slot* slot, std::unique_ptr<Callback> callback,
                                 std::string_view whatFailed) {
  if (result < 0) {
    return errorFromErrno(-result, std::string(whatFailed));
  }
  callback.release();
  sd_bus_slot_set_destroy_callback(slot, deleteCallback);
  return BusSlot(slot);
}

std::string_view ownName(sd_bus_message* message) {
  const char* name = nullptr;
  sd_bus_get_unique_name(sd_bus_message_get_bus(message), &name);
  return name == nullptr ? "" : name;
}

Result<Value> singleValue(Result<BusMessage> reply) {
  if (!reply) {
    return reply.error();
  }
  auto arguments = reply->arguments();
  if (!arguments) {
    return arguments.error();
  }
  if (arguments->size() != 1) {
    return Error{EBADMSG, "The reply does not have one value"};
  }
  return std::move(arguments->front());
}

}  // namespace

Result<std::unique_ptr<BusConnection>> BusConnection::begin(LinuxRunLoop& loop,
                                                            const std::string& address,
                                                            bool isTrusted, bool waits) {
  sd_bus* bus = nullptr;
  int result = sd_bus_new(&bus);
  if (result < 0) {
    return errorFromErrno(-result, "No bus connection can be made");
  }
  std::unique_ptr<BusConnection> connection(new BusConnection(loop, bus, waits));
  result = sd_bus_set_address(bus, address.c_str());
  if (result >= 0) {
    result = sd_bus_set_bus_client(bus, 1);
  }
  if (result >= 0) {
    // On a session bus everybody is the same user.
    result = sd_bus_set_trusted(bus, static_cast<int>(isTrusted));
  }
  if (result >= 0) {
    result = sd_bus_set_connected_signal(bus, static_cast<int>(!waits));
  }
  if (result >= 0) {
    result = sd_bus_start(bus);
  }
  const char* uniqueName = "";
  if (result >= 0 && waits) {
    result = sd_bus_get_unique_name(bus, &uniqueName);  // waits for the bus's welcome
  }
  if (result >= 0) {
    result = sd_bus_attach_event(bus, loop.event(), SD_EVENT_PRIORITY_NORMAL);
  }
  if (result < 0) {
    return errorFromErrno(-result, fmt::format("The bus at {} cannot be reached", address));
  }
  connection->uniqueName_ = uniqueName;
  auto slot = connection->matchLocal("Disconnected", &BusConnection::disconnected_);
  if (!slot) {
    return slot.error();
  }
  connection->disconnectSlot_ = std::move(*slot);
  return connection;
}

Result<BusSlot> BusConnection::matchLocal(std::string_view member, Task BusConnection::* told) {
  return addMatch(fmt::format("type='signal',interface='{}',member='{}'", kLocalInterface, member),
                  [this, told](const BusMessage&) {
                    if (const Task callback = std::exchange(this->*told, nullptr)) {
                      callback();
                    }
                  });
}

Result<std::unique_ptr<BusConnection>> BusConnection::open(LinuxRunLoop& loop,
                                                           const std::string& address,
                                                           bool isTrusted) {
  return begin(loop, address, isTrusted, true);
}

Result<std::unique_ptr<BusConnection>> BusConnection::openSession(LinuxRunLoop& loop) {
  const auto address = sessionAddress();
  return address ? open(loop, *address, true) : address.error();
}

Result<std::unique_ptr<BusConnection>> BusConnection::openSystem(LinuxRunLoop& loop) {
  return open(loop, systemAddress(), false);
}

Result<std::unique_ptr<BusConnection>> BusConnection::openAddress(LinuxRunLoop& loop,
                                                                  const std::string& address) {
  return open(loop, address, true);
}

Result<std::unique_ptr<BusConnection>> BusConnection::beginSystem(LinuxRunLoop& loop,
                                                                  const std::string& address,
                                                                  Task connected) {
  auto begun = begin(loop, address.empty() ? systemAddress() : address, false, false);
  if (!begun) {
    return begun;
  }
  auto& connection = **begun;
  connection.connected_ = [&connection, connected = std::move(connected)] {
    const char* uniqueName = "";
    sd_bus_get_unique_name(connection.bus_, &uniqueName);
    connection.uniqueName_ = uniqueName;
    connected();
  };
  auto slot = connection.matchLocal("Connected", &BusConnection::connected_);
  if (!slot) {
    return slot.error();
  }
  connection.connectSlot_ = std::move(*slot);
  return begun;
}

Result<std::unique_ptr<BusConnection>> BusConnection::openSessionMonitor(
    LinuxRunLoop& loop, const std::vector<std::string>& rules, Callback callback) {
  return becomeMonitor(openSession(loop), rules, std::move(callback));
}

Result<std::unique_ptr<BusConnection>> BusConnection::openSystemMonitor(
    LinuxRunLoop& loop, const std::vector<std::string>& rules, Callback callback) {
  return becomeMonitor(openSystem(loop), rules, std::move(callback));
}

Result<std::unique_ptr<BusConnection>> BusConnection::becomeMonitor(
    Result<std::unique_ptr<BusConnection>> opened, const std::vector<std::string>& rules,
    Callback callback) {
  if (!opened) {
    return opened.error();
  }
  auto& connection = **opened;
  const auto& destination = kBusDriver;
  const auto request = connection.newMethodCall(
      {destination.destination, destination.path, "org.freedesktop.DBus.Monitoring"},
      "BecomeMonitor", "asu", {Array(rules.begin(), rules.end()), 0});
  if (!request) {
    return request.error();
  }
  if (const auto reply = connection.call(*request); !reply) {
    return reply.error();
  }
  // Takes every message out of sd-bus's hands: it would answer the calls to other programs, and the
  // bus ends a monitor's connection that sends. The connection's end is sd-bus's own message.
  auto owned = std::make_unique<Callback>(std::move(callback));
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_add_filter(
      connection.bus_, &slot,
      [](sd_bus_message* message, void* userdata, sd_bus_error*) {
        const auto received = BusMessage::referringTo(message);
        if (received.interface() == kLocalInterface) {
          return 0;
        }
        // What the bus itself has to tell us, of our own names, is no message of others.
        if (received.destination() != ownName(message)) {
          (*static_cast<Callback*>(userdata))(received);
        }
        return 1;
      },
      owned.get());
  auto filter = slotWithCallback(result, slot, std::move(owned), "The bus cannot be monitored");
  if (!filter) {
    return filter.error();
  }
  connection.monitorSlot_ = std::move(*filter);
  return opened;
}

BusConnection::~BusConnection() {
  connectSlot_.reset();
  disconnectSlot_.reset();
  monitorSlot_.reset();
  if (waits_) {
    sd_bus_flush(bus_);
  }
  sd_bus_close_unref(bus_);
}

Result<BusMessage> BusConnection::newMethodCall(const BusAddress& address, std::string_view member,
                                                std::string_view signature,
                                                const Array& arguments) const {
  sd_bus_message* raw = nullptr;
  const int result =
      sd_bus_message_new_method_call(bus_, &raw, address.destination.c_str(), address.path.c_str(),
                                     address.interface.c_str(), std::string(member).c_str());
  if (result < 0) {
    return errorFromErrno(-result, fmt::format("{}.{} of {} cannot be called", address.interface,
                                               member, address.destination));
  }
  auto message = BusMessage::adopting(raw);
  if (auto error = message.append(signature, arguments)) {
    return *error;
  }
  return message;
}

ErrorOrNone BusConnection::send(const BusMessage& message) const {
  const int result = sd_bus_send(bus_, message.get(), nullptr);
  return result < 0 ? ErrorOrNone(errorFromErrno(-result, "The message cannot be sent"))
                    : std::nullopt;
}

Result<BusMessage> BusConnection::call(const BusMessage& message, TimeInterval timeout) const {
  sd_bus_error busError{};
  sd_bus_message* reply = nullptr;
  const int result = sd_bus_call(bus_, message.get(), static_cast<std::uint64_t>(timeout.count()),
                                 &busError, &reply);
  if (result < 0) {
    const auto error = errorFromBus(result, &busError, "The call failed");
    sd_bus_error_free(&busError);
    return error;
  }
  return BusMessage::adopting(reply);
}

Result<BusSlot> BusConnection::callAsync(const BusMessage& message, Callback callback,
                                         TimeInterval timeout) const {
  auto owned = std::make_unique<Callback>(std::move(callback));
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_call_async(bus_, &slot, message.get(), callBack, owned.get(),
                                       static_cast<std::uint64_t>(timeout.count()));
  return slotWithCallback(result, slot, std::move(owned), "The call cannot be sent");
}

ErrorOrNone BusConnection::emitSignal(const std::string& path, const std::string& interface,
                                      std::string_view member, std::string_view signature,
                                      const Array& arguments) const {
  sd_bus_message* raw = nullptr;
  const int result = sd_bus_message_new_signal(bus_, &raw, path.c_str(), interface.c_str(),
                                               std::string(member).c_str());
  if (result < 0) {
    return errorFromErrno(-result, fmt::format("The signal {} cannot be made", member));
  }
  auto message = BusMessage::adopting(raw);
  if (auto error = message.append(signature, arguments)) {
    return error;
  }
  return send(message);
}

Result<BusSlot> BusConnection::addMatch(const std::string& rule, Callback callback) const {
  auto owned = std::make_unique<Callback>(std::move(callback));
  sd_bus_slot* slot = nullptr;
  const int result =
      waits_ ? sd_bus_add_match(bus_, &slot, rule.c_str(), callBack, owned.get())
             : sd_bus_add_match_async(bus_, &slot, rule.c_str(), callBack, nullptr, owned.get());
  return slotWithCallback(result, slot, std::move(owned),
                          fmt::format("Messages cannot be matched by {}", rule));
}

Result<BusSlot> BusConnection::watchOwner(const std::string& name, OwnerChanged changed) const {
  return addMatch(
      fmt::format("type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',arg0='{1}'",
                  kBusDriver.destination, name),
      [changed = std::move(changed)](const BusMessage& message) {
        const auto arguments = message.arguments();
        if (arguments && message.signature() == "sss") {
          changed(*(*arguments)[2].text());
        }
      });
}

Result<BusSlot> BusConnection::addFilter(Callback callback) const {
  auto owned = std::make_unique<Callback>(std::move(callback));
  sd_bus_slot* slot = nullptr;
  const int result = sd_bus_add_filter(bus_, &slot, callBack, owned.get());
  return slotWithCallback(result, slot, std::move(owned), "Messages cannot be filtered");
}

Result<BusSlot> BusConnection::addInterface(std::string_view path, BusInterface interface) const {
  return registerInterface(bus_, path, std::move(interface));
}

ErrorOrNone BusConnection::requestName(const std::string& name) const {
  const int result = sd_bus_request_name(bus_, name.c_str(), 0);
  if (result == -EEXIST || result == -EALREADY) {
    return Error{EEXIST, fmt::format("The bus name {} is taken", name)};
  }
  return result < 0 ? ErrorOrNone(errorFromErrno(
                          -result, fmt::format("The bus name {} cannot be had", name)))
                    : std::nullopt;
}

void BusConnection::releaseName(const std::string& name) const {
  // Not waited for: the bus's answer stands behind all that it has for us.
  sd_bus_release_name_async(bus_, nullptr, name.c_str(), nullptr, nullptr);
}

Result<bool> BusConnection::nameHasOwner(const std::string& name) const {
  auto request = newMethodCall(kBusDriver, "NameHasOwner", "s", {name});
  if (!request) {
    return request.error();
  }
  const auto value = singleValue(call(*request));
  return value ? Result<bool>(value->boolValue()) : value.error();
}

Result<Value> BusConnection::getProperty(const BusAddress& address, std::string_view name,
                                         TimeInterval timeout) const {
  auto request = newMethodCall({address.destination, address.path, kPropertiesInterface}, "Get",
                               "ss", {address.interface, name});
  if (!request) {
    return request.error();
  }
  request->setAutoStart(false);
  return singleValue(call(*request, timeout));
}

Result<Dictionary> BusConnection::getAllProperties(const BusAddress& address,
                                                   TimeInterval timeout) const {
  auto request = newMethodCall({address.destination, address.path, kPropertiesInterface}, "GetAll",
                               "s", {address.interface});
  if (!request) {
    return request.error();
  }
  request->setAutoStart(false);
  const auto value = singleValue(call(*request, timeout));
  if (!value) {
    return value.error();
  }
  if (value->dictionary() == nullptr) {
    return Error{EBADMSG, "The reply is not a dictionary of properties"};
  }
  return *value->dictionary();
}

ErrorOrNone BusConnection::setProperty(const BusAddress& address, std::string_view name,
                                       std::string_view signature, const Value& value,
                                       TimeInterval timeout) const {
  auto request = newMethodCall({address.destination, address.path, kPropertiesInterface}, "Set");
  if (!request) {
    return request.error();
  }
  auto error = request->append("ss", {address.interface, name});
  // A variant of the wanted type, which need not be the one that the value alone would get.
  const std::string type(signature);
  if (!error &&
      sd_bus_message_open_container(request->get(), SD_BUS_TYPE_VARIANT, type.c_str()) < 0) {
    error = Error{EINVAL, fmt::format("\"{}\" is not a type", signature)};
  }
  if (!error) {
    error = request->append(signature, {value});
  }
  if (error) {
    return error;
  }
  sd_bus_message_close_container(request->get());
  request->setAutoStart(false);
  const auto reply = call(*request, timeout);
  return reply ? std::nullopt : ErrorOrNone(reply.error());
}

}  // namespace wrixel2::platform::linux
