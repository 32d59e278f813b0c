#include "companion/BusService.h"

#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::linux::BusMessage;

constexpr const char* kDriver = "org.freedesktop.DBus";

}  // namespace

void BusService::start(std::function<void(bool)> changed) {
  changed_ = std::move(changed);
  auto match = bus_.watchOwner(name_, [this](const std::string& owner) { ownerIs(owner); });
  if (match) {
    signals_.push_back(std::move(*match));
  }
  askForOwner();
}

void BusService::askForOwner() {
  const auto request =
      bus_.newMethodCall({kDriver, "/org/freedesktop/DBus", kDriver}, "GetNameOwner", "s", {name_});
  if (!request) {
    return;
  }
  auto pending = bus_.callAsync(*request, [this](const BusMessage& reply) {
    if (isOwnerKnown_) {
      return;  // a change was told meanwhile
    }
    const auto arguments = reply.arguments();
    const bool isTold = !reply.isError() && arguments && reply.signature() == "s";
    ownerIs(isTold ? *arguments->front().text() : std::string());
  });
  if (pending) {
    pendingOwner_ = std::move(*pending);
  }
}

void BusService::ownerIs(const std::string& owner) {
  if (std::exchange(isOwnerKnown_, true) && owner == owner_) {
    return;
  }
  const bool wasThere = !std::exchange(owner_, owner).empty();
  questions_.clear();
  if (wasThere || owner.empty()) {
    changed_(false);
  }
  if (!owner.empty()) {
    changed_(true);
  }
}

void BusService::onSignal(std::string_view interface, std::string_view member,
                          std::string signature, Handler handler, std::string_view restOfRule) {
  auto match = bus_.addMatch(
      fmt::format("type='signal',sender='{}',interface='{}',member='{}'{}", name_, interface,
                  member, restOfRule),
      [this, signature = std::move(signature),
       handler = std::move(handler)](const BusMessage& message) {
        // Others may send signals of the same look.
        if (owner_.empty() || message.sender() != owner_ || message.signature() != signature) {
          return;
        }
        if (const auto arguments = message.arguments()) {
          handler(message, *arguments);
        }
      });
  if (match) {
    signals_.push_back(std::move(*match));
  }
}

void BusService::ask(const std::string& path, const std::string& interface, std::string_view member,
                     std::string_view signature, const Array& arguments,
                     std::string answerSignature, Handler handler) {
  auto request = bus_.newMethodCall({name_, path, interface}, member, signature, arguments);
  if (!request) {
    return;
  }
  request->setAutoStart(false);
  const auto number = nextQuestion_++;
  auto pending =
      bus_.callAsync(*request, [this, number, answerSignature = std::move(answerSignature),
                                handler = std::move(handler)](const BusMessage& reply) {
        questions_.erase(number);  // the slot itself stays until this returns
        const auto answer = reply.arguments();
        if (!reply.isError() && answer && reply.signature() == answerSignature) {
          handler(reply, *answer);
        }
      });
  if (pending) {
    questions_.emplace(number, std::move(*pending));
  }
}

void BusService::tell(const std::string& path, const std::string& interface,
                      std::string_view member, std::string whatFailed) {
  auto request = bus_.newMethodCall({name_, path, interface}, member);
  if (!request) {
    logger_.warning(fmt::format("{}: {}", whatFailed, description(request.error())));
    return;
  }
  request->setAutoStart(false);
  auto pending = bus_.callAsync(
      *request, [logger = logger_, whatFailed = std::move(whatFailed)](const BusMessage& reply) {
        if (reply.isError()) {
          logger.warning(fmt::format("{}: {}", whatFailed, description(reply.error())));
        }
      });
  if (pending) {
    pending->detach();
  }
}

}  // namespace wrixel2::companion
