#include "platform/linux/bluez/SdBusBluezBus.h"

#include <utility>

#include <errno.h>
#include <fmt/format.h>

#include "platform/linux/BusValues.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::bluez {
namespace {

using linux::BusConnection;
using linux::BusMessage;

constexpr std::string_view kDriverName = "org.freedesktop.DBus";
constexpr std::string_view kPropertiesInterface = "org.freedesktop.DBus.Properties";
constexpr std::string_view kNameHasNoOwner = "org.freedesktop.DBus.Error.NameHasNoOwner";
constexpr std::string_view kFailed = "org.freedesktop.DBus.Error.Failed";

BluezReply contentOf(const BusMessage& reply) {
  if (reply.isError()) {
    const auto* error = sd_bus_message_get_error(reply.get());
    return {{}, std::string(reply.errorName()), error->message == nullptr ? "" : error->message};
  }
  auto arguments = reply.arguments();
  if (!arguments) {
    return {{}, std::string(kFailed), description(arguments.error())};
  }
  return {std::move(*arguments), {}, {}};
}

const std::string& textAt(const Array& arguments, std::size_t index) {
  return *arguments[index].text();
}

}  // namespace

SdBusBluezBus::SdBusBluezBus(linux::LinuxRunLoop& loop, Log& log, std::string address)
    : loop_(loop), logger_(log, "SdBusBluezBus"), systemBus_(loop, *this, std::move(address)) {}

void SdBusBluezBus::start(BluezBusListener& listener) {
  listener_ = &listener;
  systemBus_.start();
}

// --- The connection ---

ErrorOrNone SdBusBluezBus::busConnected(BusConnection& connection) {
  connection_ = &connection;
  if (auto error = subscribe()) {
    return error;
  }
  askForOwner();
  return std::nullopt;
}

void SdBusBluezBus::busUnavailable(const Error& error) {
  era_ = std::make_shared<char>();
  calls_.clear();
  ownerCall_.reset();
  subscriptions_.clear();
  connection_ = nullptr;
  owner_.clear();
  isOwnerKnown_ = false;
  listener_->busUnavailable(error);
}

// --- Signals ---

ErrorOrNone SdBusBluezBus::subscribe() {
  struct Subscription {
    std::string rule;
    std::string_view signature;
    Handler handler;
  };
  const auto properties = [](std::string_view interface) {
    return Subscription{
        fmt::format("type='signal',sender='{}',interface='{}',member='PropertiesChanged',"
                    "path_namespace='{}',arg0='{}'",
                    kBluezName, kPropertiesInterface, kBluezRoot, interface),
        "sa{sv}as", &SdBusBluezBus::propertiesChanged};
  };
  const auto objects = [](std::string_view member, std::string_view signature, Handler handler) {
    return Subscription{fmt::format("type='signal',sender='{}',interface='{}',member='{}'",
                                    kBluezName, kObjectManagerInterface, member),
                        signature, handler};
  };
  // By interface, so that what happens to a headset's player does not wake us.
  const std::vector<Subscription> subscriptions = {
      {fmt::format(
           "type='signal',sender='{0}',interface='{0}',member='NameOwnerChanged',arg0='{1}'",
           kDriverName, kBluezName),
       "sss", &SdBusBluezBus::ownerChanged},
      objects("InterfacesAdded", "oa{sa{sv}}", &SdBusBluezBus::interfacesAdded),
      objects("InterfacesRemoved", "oas", &SdBusBluezBus::interfacesRemoved),
      properties(kAdapterInterface),
      properties(kDeviceInterface),
      properties(kCharacteristicInterface),
      {fmt::format("type='signal',sender='{}',interface='{}',member='Disconnected',"
                   "path_namespace='{}'",
                   kBluezName, kDeviceInterface, kBluezRoot),
       "ss", &SdBusBluezBus::deviceDisconnected}};
  for (const auto& [rule, signature, handler] : subscriptions) {
    if (auto error = subscribeTo(rule, signature, handler)) {
      return error;
    }
  }
  return std::nullopt;
}

ErrorOrNone SdBusBluezBus::subscribeTo(const std::string& rule, std::string_view signature,
                                       Handler handler) {
  auto slot = connection_->addMatch(rule, [this, signature, handler](const BusMessage& message) {
    const bool isFromDriver = message.sender() == kDriverName;
    if (!isFromDriver && (owner_.empty() || message.sender() != owner_)) {
      return;
    }
    const auto arguments = message.arguments();
    if (message.signature() != signature || !arguments) {
      logger_.warning(fmt::format("A signal {} of the form \"{}\" is ignored", message.member(),
                                  message.signature()));
      return;
    }
    (this->*handler)(message, *arguments);
  });
  if (!slot) {
    return slot.error();
  }
  subscriptions_.push_back(std::move(*slot));
  return std::nullopt;
}

void SdBusBluezBus::askForOwner() {
  const std::string driver(kDriverName);
  const auto request = connection_->newMethodCall({driver, "/org/freedesktop/DBus", driver},
                                                  "GetNameOwner", "s", {kBluezName});
  auto slot =
      request ? connection_->callAsync(
                    *request,
                    [this](const BusMessage& reply) {
                      const auto arguments = reply.arguments();
                      if (isOwnerKnown_ || isBusGone()) {
                        return;  // a change was told meanwhile, or this end is told next
                      }
                      if (reply.isError() && reply.errorName() != kNameHasNoOwner) {
                        logger_.warning(fmt::format("The owner of {} is not told: {}", kBluezName,
                                                    description(reply.error())));
                      }
                      const bool isTold = !reply.isError() && arguments && arguments->size() == 1 &&
                                          arguments->front().text() != nullptr;
                      ownerIs(isTold ? textAt(*arguments, 0) : std::string());
                    },
                    BusConnection::kNoTimeout)  // of a slow bus a late answer counts as well
              : Result<linux::BusSlot>(request.error());
  if (slot) {
    ownerCall_ = std::move(*slot);
  } else {
    logger_.warning(description(slot.error()));
  }
}

void SdBusBluezBus::ownerIs(const std::string& owner) {
  const bool wasThere = !owner_.empty();
  if (std::exchange(isOwnerKnown_, true) && owner == owner_) {
    return;
  }
  owner_ = owner;
  era_ = std::make_shared<char>();
  calls_.clear();
  if (wasThere && !owner.empty()) {
    listener_->bluezOwnerChanged(false);
  }
  listener_->bluezOwnerChanged(!owner.empty());
}

void SdBusBluezBus::ownerChanged(const Message& /*message*/, const Array& arguments) {
  ownerIs(textAt(arguments, 2));
}

void SdBusBluezBus::interfacesAdded(const Message& /*message*/, const Array& arguments) {
  listener_->interfacesAdded(textAt(arguments, 0), *arguments[1].dictionary());
}

void SdBusBluezBus::interfacesRemoved(const Message& /*message*/, const Array& arguments) {
  listener_->interfacesRemoved(textAt(arguments, 0), *arguments[1].array());
}

void SdBusBluezBus::propertiesChanged(const Message& message, const Array& arguments) {
  listener_->propertiesChanged(std::string(message.path()), textAt(arguments, 0),
                               *arguments[1].dictionary(), *arguments[2].array());
}

void SdBusBluezBus::deviceDisconnected(const Message& message, const Array& arguments) {
  listener_->deviceDisconnected(std::string(message.path()), textAt(arguments, 0));
}

// --- Calls ---

// A connection that ends answers what is pending with errors of its own before it says so.
bool SdBusBluezBus::isBusGone() const { return sd_bus_is_open(connection_->get()) <= 0; }

Result<BusMessage> SdBusBluezBus::newCall(const BluezCall& call) const {
  if (connection_ == nullptr) {
    return Error{ENOTCONN, "There is no connection to the system bus"};
  }
  auto message = connection_->newMethodCall(
      {std::string(kBluezName), call.path, std::string(call.interface)}, call.member);
  if (!message) {
    return message;
  }
  message->setAutoStart(false);
  ErrorOrNone error;
  if (call.value) {
    error = message->append("ay", {*call.value});
  }
  if (!error && call.options) {
    auto* const raw = message->get();
    sd_bus_message_open_container(raw, SD_BUS_TYPE_ARRAY, "{sv}");
    for (const auto& option : *call.options) {
      const std::string type(option.signature);
      sd_bus_message_open_container(raw, SD_BUS_TYPE_DICT_ENTRY, "sv");
      error = error ? error : message->append("s", {option.name});
      sd_bus_message_open_container(raw, SD_BUS_TYPE_VARIANT, type.c_str());
      error = error ? error : message->append(option.signature, {option.value});
      sd_bus_message_close_container(raw);
      sd_bus_message_close_container(raw);
    }
    sd_bus_message_close_container(raw);
  }
  if (error) {
    return *error;
  }
  return message;
}

void SdBusBluezBus::call(BluezCall call, TimeInterval timeout, Callback callback) {
  const auto message = newCall(call);
  if (!message) {
    answerLater(std::move(callback), {{}, std::string(kFailed), description(message.error())});
    return;
  }
  const auto number = nextCall_++;
  const auto shared = std::make_shared<Callback>(std::move(callback));
  auto slot = connection_->callAsync(
      *message,
      [this, number, shared](const BusMessage& reply) {
        calls_.erase(number);  // the slot itself stays until this returns
        if (!isBusGone()) {
          (*shared)(contentOf(reply));
        }
      },
      timeout);
  if (slot) {
    calls_.emplace(number, std::move(*slot));
  } else {
    answerLater(std::move(*shared), {{}, std::string(kFailed), description(slot.error())});
  }
}

void SdBusBluezBus::answerLater(Callback callback, BluezReply reply) {
  loop_.post(
      [era = std::weak_ptr<char>(era_), callback = std::move(callback), reply = std::move(reply)] {
        if (!era.expired()) {
          callback(reply);
        }
      });
}

void SdBusBluezBus::send(BluezCall call) {
  auto message = newCall(call);
  if (!message) {
    return;
  }
  message->setExpectsReply(false);
  if (const auto error = connection_->send(*message)) {
    logger_.warning(description(*error));
  }
}

}  // namespace wrixel2::platform::bluez
