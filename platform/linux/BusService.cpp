#include "platform/linux/BusService.h"

#include <errno.h>
#include <fmt/format.h>

namespace wrixel2::platform::linux {
namespace {

const BusAddress kDriver{"org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus"};
constexpr const char* kGetNameOwner = "GetNameOwner";

/// sd-bus's own stands for the time that is over; the bus's, for a service that went without having
/// answered.
bool isMissing(const BusMessage& reply) {
  return reply.errorName() == SD_BUS_ERROR_NO_REPLY && !reply.sender().starts_with(':');
}

}  // namespace

struct BusService::Question {
  BusAddress to;
  std::string member;
  std::string signature;
  Array arguments;
  std::function<void(const BusMessage& reply)> answered;
};

void BusService::start(Changed changed) {
  if (watchOwner(std::move(changed))) {
    return;
  }
  send(std::make_shared<Question>(
      Question{kDriver, kGetNameOwner, "s", {name_}, [this](const BusMessage& reply) {
                 const auto arguments = reply.arguments();
                 const bool isTold = !reply.isError() && arguments && reply.signature() == "s";
                 ownerIs(isTold ? *arguments->front().text() : std::string());
               }}));
}

ErrorOrNone BusService::startAndWait(Changed changed) {
  if (auto error = watchOwner(std::move(changed))) {
    return error;
  }
  auto request = bus_.newMethodCall(kDriver, kGetNameOwner, "s", {name_});
  const auto reply = request ? bus_.call(*request) : std::move(request);
  const auto arguments = reply ? reply->arguments() : Result<Array>(reply.error());
  if (!arguments && arguments.error().code != ENXIO) {
    return arguments.error();
  }
  isOwnerKnown_ = true;
  owner_ = arguments ? *arguments->front().text() : "";
  return std::nullopt;
}

ErrorOrNone BusService::watchOwner(Changed changed) {
  changed_ = std::move(changed);
  auto match = bus_.watchOwner(name_, [this](const std::string& owner) { ownerIs(owner); });
  if (!match) {
    return match.error();
  }
  signals_.push_back(std::move(*match));
  return std::nullopt;
}

void BusService::ownerIs(const std::string& owner) {
  if (std::exchange(isOwnerKnown_, true) && owner == owner_) {
    return;
  }
  const bool wasThere = !std::exchange(owner_, owner).empty();
  questions_.clear();
  const auto changed = changed_;
  if (!changed) {
    return;
  }
  const std::weak_ptr<char> life = life_;
  if (wasThere || owner.empty()) {
    changed(false);
  }
  if (!owner.empty() && !life.expired()) {
    changed(true);
  }
}

Result<BusSlot> BusService::matchSignal(std::string_view interface, std::string_view member,
                                        std::string signature, Handler handler,
                                        std::string_view restOfRule) {
  return bus_.addMatch(
      fmt::format("type='signal',sender='{}',interface='{}',member='{}'{}", name_, interface,
                  member, restOfRule),
      [this, signature = std::move(signature),
       handler = std::move(handler)](const BusMessage& message) {
        // One that is sent straight to us passes no rule of the bus's.
        if (owner_.empty() || message.sender() != owner_ || message.signature() != signature) {
          return;
        }
        if (const auto arguments = message.arguments()) {
          handler(message, *arguments);
        }
      });
}

void BusService::onSignal(std::string_view interface, std::string_view member,
                          std::string signature, Handler handler, std::string_view restOfRule) {
  auto match = matchSignal(interface, member, std::move(signature), std::move(handler), restOfRule);
  if (match) {
    signals_.push_back(std::move(*match));
  }
}

void BusService::ask(const std::string& path, const std::string& interface, std::string_view member,
                     std::string_view signature, const Array& arguments,
                     std::string answerSignature, Handler answered, std::function<void()> refused) {
  send(std::make_shared<Question>(
      Question{{name_, path, interface},
               std::string(member),
               std::string(signature),
               arguments,
               [answerSignature = std::move(answerSignature), answered = std::move(answered),
                refused = std::move(refused)](const BusMessage& reply) {
                 const auto answer = reply.arguments();
                 if (!reply.isError() && answer && reply.signature() == answerSignature) {
                   answered(reply, *answer);
                 } else if (refused) {
                   refused();
                 }
               }}));
}

void BusService::send(const std::shared_ptr<const Question>& question) {
  auto request =
      bus_.newMethodCall(question->to, question->member, question->signature, question->arguments);
  if (!request) {
    return;
  }
  request->setAutoStart(false);
  const auto number = nextQuestion_++;
  auto pending = bus_.callAsync(
      *request,
      [this, number, question](const BusMessage& reply) {
        questions_.erase(number);  // the slot itself stays until this returns
        if (isMissing(reply)) {
          send(question);
        } else {
          question->answered(reply);
        }
      },
      answerTime_);
  if (pending) {
    questions_.emplace(number, std::move(*pending));
  }
}

void BusService::tell(const std::string& path, const std::string& interface,
                      std::string_view member, const Logger& logger, std::string whatFailed) {
  auto request = bus_.newMethodCall({name_, path, interface}, member);
  if (!request) {
    logger.warning(fmt::format("{}: {}", whatFailed, description(request.error())));
    return;
  }
  request->setAutoStart(false);
  auto pending = bus_.callAsync(
      *request, [logger, whatFailed = std::move(whatFailed)](const BusMessage& reply) {
        if (reply.isError()) {
          logger.warning(fmt::format("{}: {}", whatFailed, description(reply.error())));
        }
      });
  if (pending) {
    pending->detach();
  }
}

}  // namespace wrixel2::platform::linux
