#include "bandview/UserActions.h"

#include <array>

#include "platform/linux/BusMessage.h"

namespace wrixel2::bandview {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::ErrorOrNone;
using platform::linux::BusAddress;

/// The user waits for the answer.
constexpr platform::TimeInterval kTimeout = platform::seconds(2);

const BusAddress kBand{"org.corvale.wrixel2.VirtualBand", "/org/corvale/wrixel2/VirtualBand",
                       "org.corvale.wrixel2.VirtualBand"};
const BusAddress kDaemon{"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc",
                         "org.corvale.wrixel2dIpc"};
const BusAddress kNotifications{"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                                "org.freedesktop.Notifications"};

struct Message {
  const char* title;
  const char* body;
};
/// Several, because one that repeats itself at once is forwarded only once.
constexpr std::array<Message, 4> kMessages{{
    {"Ben", "Tea at four?"},
    {"Clara", "The train is late again"},
    {"David", "Happy birthday!"},
    {"Emma", "Call me when you can"},
}};

constexpr std::uint32_t kSteps = 100;
constexpr std::uint32_t kMetres = 70;
constexpr std::uint32_t kKilocalories = 4;

}  // namespace

ErrorOrNone UserActions::notify() {
  const Message& message = kMessages[notifications_++ % kMessages.size()];
  const auto call =
      bus_.newMethodCall(kNotifications, "Notify", "susssasa{sv}i",
                         {"Chat", 0, "", message.title, message.body, Array(), Dictionary(), -1});
  if (!call) {
    return call.error();
  }
  // Not waited for: the answer comes from this very process where it serves notifications.
  return bus_.send(*call);
}

ErrorOrNone UserActions::call() { return sendPhoneCall({{"newCall", true}, {"text", "Anna"}}); }

ErrorOrNone UserActions::hangUp() { return sendPhoneCall({{"callHanged", true}}); }

ErrorOrNone UserActions::sendPhoneCall(const Dictionary& userInfo) {
  return callMethod(kDaemon, "phoneCall", "a{sv}", {userInfo});
}

ErrorOrNone UserActions::measure() {
  return callMethod({kDaemon.destination, "/org/corvale/NotifyCenter", "org.corvale.NotifyCenter"},
                    "Post", "s", {"org.corvale.wrixel2prefs.preferencechanged/measure"});
}

ErrorOrNone UserActions::walk() {
  auto error = addToCounter("Steps", kSteps);
  if (!error) {
    error = addToCounter("Distance", kMetres);
  }
  return error ? error : addToCounter("Calories", kKilocalories);
}

ErrorOrNone UserActions::addToCounter(const char* counter, std::uint32_t amount) {
  const auto value = bus_.getProperty(kBand, counter, kTimeout);
  if (!value) {
    return value.error();
  }
  return bus_.setProperty(kBand, counter, "u",
                          static_cast<std::uint32_t>(value->longValue()) + amount, kTimeout);
}

ErrorOrNone UserActions::pressButton() { return callMethod(kBand, "PressButton", "", {}); }

ErrorOrNone UserActions::setIsInRange(bool isInRange) {
  return bus_.setProperty(kBand, "InRange", "b", isInRange, kTimeout);
}

ErrorOrNone UserActions::callMethod(const BusAddress& address, std::string_view member,
                                    std::string_view signature, const Array& arguments) {
  auto message = bus_.newMethodCall(address, member, signature, arguments);
  if (!message) {
    return message.error();
  }
  message->setAutoStart(false);
  const auto reply = bus_.call(*message, kTimeout);
  return reply ? std::nullopt : ErrorOrNone(reply.error());
}

}  // namespace wrixel2::bandview
