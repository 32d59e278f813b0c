#include "platform/linux/SdBusMessageCenter.h"

#include <algorithm>
#include <utility>

#include <errno.h>
#include <fmt/format.h>

#include "platform/linux/BusValues.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kDictionary = "a{sv}";

class SdBusPendingAnswer final : public PendingAnswer {
 public:
  explicit SdBusPendingAnswer(BusSlot slot) : slot_(std::move(slot)) {}

 private:
  BusSlot slot_;
};

Error errorOfAnswer(const BusMessage& reply) {
  Error error = reply.error();
  const std::string_view name = reply.errorName();
  if (name == SD_BUS_ERROR_NAME_HAS_NO_OWNER || name == SD_BUS_ERROR_SERVICE_UNKNOWN) {
    error.code = MessageCenter::kNobodyServes;
  } else if (name == SD_BUS_ERROR_NO_REPLY || name == SD_BUS_ERROR_DISCONNECTED) {
    error.code = MessageCenter::kServerIsGone;
  }
  return error;
}

Result<Dictionary> dictionaryOf(const BusMessage& reply, std::string_view name) {
  if (reply.signature() != kDictionary) {
    return Error{EBADMSG, fmt::format("The reply to {} is of type \"{}\" instead of \"{}\"", name,
                                      reply.signature(), kDictionary)};
  }
  auto arguments = reply.arguments();
  if (!arguments) {
    return arguments.error();
  }
  return *arguments->front().dictionary();
}

std::string pathOfCenter(std::string_view name) {
  std::string path = "/" + std::string(name);
  std::replace(path.begin(), path.end(), '.', '/');
  return path;
}

}  // namespace

SdBusMessageCenter::SdBusMessageCenter(BusConnection& connection, Log& log, std::string_view name,
                                       TimeInterval replyTimeout)
    : connection_(connection),
      logger_(log, "SdBusMessageCenter"),
      address_{std::string(name), pathOfCenter(name), std::string(name)},
      replyTimeout_(replyTimeout) {}

SdBusMessageCenter::~SdBusMessageCenter() {
  if (isServing_) {
    connection_.releaseName(address_.destination);
  }
}

ErrorOrNone SdBusMessageCenter::runServer() {
  if (auto error = connection_.requestName(address_.destination)) {
    return error;
  }
  isServing_ = true;
  auto filter = connection_.addFilter([this](const BusMessage& message) { warnOfMisuse(message); });
  if (!filter) {
    return filter.error();
  }
  misuseFilter_ = std::move(*filter);
  return exportMessages();
}

ErrorOrNone SdBusMessageCenter::exportMessages() {
  BusInterface interface;
  interface.name = address_.interface;
  for (const auto& [name, handler] : messages_) {
    interface.methods.push_back(
        {name,
         {{"userInfo", kDictionary}},
         {{"reply", kDictionary}},
         [this, served = handler](const BusMessage& call) { serve(call, served); }});
  }
  interface_.reset();
  auto slot = connection_.addInterface(address_.path, std::move(interface));
  if (!slot) {
    return slot.error();
  }
  interface_ = std::move(*slot);
  return std::nullopt;
}

void SdBusMessageCenter::serve(const BusMessage& call, const CallHandler& handler) const {
  Array arguments;
  if (const auto error = call.readBoundedArguments(arguments)) {
    logger_.warning(fmt::format("The message {} from {} cannot be read: {}", call.member(),
                                call.sender(), description(*error)));
    call.replyError(SD_BUS_ERROR_INVALID_ARGS, error->localizedDescription);
    return;
  }
  // sd-bus has let only the one signature through.
  handler(call, *arguments.front().dictionary());
}

void SdBusMessageCenter::registerMethod(std::string_view name, CallHandler handler) {
  messages_.insert_or_assign(std::string(name), std::move(handler));
  if (!isServing_) {
    return;
  }
  if (sd_bus_get_current_message(connection_.get()) == nullptr) {
    exportAgain();
  } else {
    // sd-bus keeps an interface that it is calling, and takes no second one of the name.
    laterExport_ =
        connection_.loop().scheduledTimer(TimeInterval::zero(), false, [this] { exportAgain(); });
  }
}

void SdBusMessageCenter::exportAgain() {
  if (const auto error = exportMessages()) {
    logger_.error(fmt::format("Messages to {} cannot be served: {}", address_.destination,
                              description(*error)));
  }
}

void SdBusMessageCenter::registerForMessageName(std::string_view name, Handler handler) {
  auto shared = std::make_shared<Handler>(std::move(handler));
  registerMethod(name, [shared](const BusMessage& call, const Dictionary& userInfo) {
    // Answered first: the handler may call the sender, which must not be waiting for us then.
    // A sender that is gone needs no answer.
    call.reply(kDictionary, {Dictionary()});
    (*shared)(call.member(), userInfo);
  });
}

void SdBusMessageCenter::registerForMessageNameWithLaterReply(std::string_view name,
                                                              LaterReplyingHandler handler) {
  auto shared = std::make_shared<LaterReplyingHandler>(std::move(handler));
  registerMethod(name, [shared](const BusMessage& received, const Dictionary& userInfo) {
    (*shared)(received.member(), userInfo,
              [call = BusMessage::referringTo(received.get())](const Result<Dictionary>& answer) {
                if (!answer) {
                  call.replyError(answer.error());
                } else if (const auto error = call.reply(kDictionary, {*answer})) {
                  call.replyError(*error);
                }
              });
  });
}

void SdBusMessageCenter::warnOfMisuse(const BusMessage& message) const {
  const bool namesInterface = message.interface() == address_.interface;
  // The bus lets a call leave the interface out; sd-bus finds no method for such a one.
  if (!message.isMethodCall() || message.path() != address_.path ||
      (!namesInterface && !message.interface().empty())) {
    return;
  }
  if (!namesInterface || messages_.find(message.member()) == messages_.end()) {
    logger_.warning(fmt::format("Unknown message {} from {}", message.member(), message.sender()));
  } else if (message.signature() != kDictionary) {
    logger_.warning(fmt::format("The message {} from {} has arguments \"{}\" instead of \"{}\"",
                                message.member(), message.sender(), message.signature(),
                                kDictionary));
  }
}

void SdBusMessageCenter::sendMessageName(std::string_view name, const Dictionary& userInfo) {
  auto message = connection_.newMethodCall(address_, name, kDictionary, {userInfo});
  ErrorOrNone error;
  if (message) {
    message->setAutoStart(false);
    message->setExpectsReply(false);
    error = connection_.send(*message);
  } else {
    error = message.error();
  }
  if (error) {
    logger_.error(fmt::format("The message {} to {} is lost: {}", name, address_.destination,
                              description(*error)));
  }
}

Result<std::unique_ptr<PendingAnswer>> SdBusMessageCenter::sendMessageNameForAnswer(
    std::string_view name, const Dictionary& userInfo, AnswerHandler handler) {
  auto message = connection_.newMethodCall(address_, name, kDictionary, {userInfo});
  if (!message) {
    return message.error();
  }
  message->setAutoStart(false);
  auto slot = connection_.callAsync(
      *message,
      [sent = std::string(name), handler = std::move(handler)](const BusMessage& reply) {
        handler(reply.isError() ? Result<Dictionary>(errorOfAnswer(reply))
                                : dictionaryOf(reply, sent));
      },
      BusConnection::kNoTimeout);
  if (!slot) {
    return slot.error();
  }
  return std::unique_ptr<PendingAnswer>(std::make_unique<SdBusPendingAnswer>(std::move(*slot)));
}

Result<Dictionary> SdBusMessageCenter::sendMessageAndReceiveReplyName(std::string_view name,
                                                                      const Dictionary& userInfo) {
  // On a connection of its own: what arrives on ours stays with the bus, in order, and neither the
  // answer nor we have to get past it.
  const char* address = nullptr;
  sd_bus_get_address(connection_.get(), &address);
  const auto own = BusConnection::openAddress(connection_.loop(), address);
  if (!own) {
    return own.error();
  }
  auto message = (*own)->newMethodCall(address_, name, kDictionary, {userInfo});
  if (!message) {
    return message.error();
  }
  message->setAutoStart(false);
  const auto reply = (*own)->call(*message, replyTimeout_);
  if (!reply) {
    return reply.error();
  }
  return dictionaryOf(*reply, name);
}

}  // namespace wrixel2::platform::linux
