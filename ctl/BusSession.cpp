#include "ctl/BusSession.h"

#include <utility>
#include <vector>

#include <fmt/format.h>

namespace wrixel2::ctl {

namespace {

using platform::linux::BusAddress;
using platform::linux::BusMessage;
using platform::linux::BusSlot;

constexpr auto kAnswerTime = std::chrono::seconds(5);
constexpr const char* kNotifyPath = "/org/corvale/NotifyCenter";
constexpr const char* kNotifyInterface = "org.corvale.NotifyCenter";
constexpr const char* kDistributedPath = "/org/corvale/DistributedNotificationCenter";
constexpr const char* kDistributedInterface = "org.corvale.DistributedNotificationCenter";
constexpr const char* kPosted = "Posted";
constexpr const char* kDictionary = "a{sv}";

/// Where a program is, with the interface of its properties.
BusAddress propertiesOf(Peer peer) {
  if (peer == Peer::daemon) {
    return {"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc", "org.corvale.wrixel2d.Status"};
  }
  return {"org.corvale.wrixel2Ipc", "/org/corvale/wrixel2Ipc", "org.corvale.wrixel2.Companion"};
}

/// The matches of one follow().
class Following final : public platform::Observation {
 public:
  std::vector<BusSlot> slots;
};

void receiveProperties(const SessionEvents& events, const BusMessage& message) {
  const auto arguments = message.arguments();
  if (!arguments || arguments->size() < 2 || (*arguments)[0].text() == nullptr ||
      *(*arguments)[0].text() != propertiesOf(Peer::daemon).interface) {
    return;
  }
  if (const auto* changed = (*arguments)[1].dictionary()) {
    events.statusChanged(*changed);
  }
}

void receivePosting(const SessionEvents& events, const BusMessage& message) {
  const auto arguments = message.arguments();
  if (arguments && message.signature() == "s") {
    events.posted(*arguments->front().text());
  }
}

void receiveDistributed(const SessionEvents& events, const BusMessage& message) {
  const auto arguments = message.arguments();
  if (!arguments || message.signature() != "ssa{sv}") {
    return;
  }
  platform::Notification notification{*(*arguments)[0].text(), std::nullopt,
                                      *(*arguments)[2].dictionary()};
  if (!(*arguments)[1].text()->empty()) {
    notification.object = *(*arguments)[1].text();
  }
  events.distributed(notification);
}

}  // namespace

BusSession::BusSession(platform::linux::LinuxRunLoop& loop,
                       std::unique_ptr<platform::linux::BusConnection> bus)
    : loop_(loop), bus_(std::move(bus)) {
  bus_->onDisconnected([this] {
    isLost_ = true;
    loop_.stop(1);
  });
}

platform::Result<std::unique_ptr<Session>> BusSession::open(platform::linux::LinuxRunLoop& loop) {
  auto bus = platform::linux::BusConnection::openSession(loop);
  if (!bus) {
    return bus.error();
  }
  return std::unique_ptr<Session>(new BusSession(loop, std::move(*bus)));
}

platform::Result<bool> BusSession::isRunning(Peer peer) {
  return bus_->nameHasOwner(propertiesOf(peer).destination);
}

platform::Result<std::optional<platform::Dictionary>> BusSession::properties(Peer peer) {
  const auto runs = isRunning(peer);
  if (!runs) {
    return runs.error();
  }
  if (!*runs) {
    return std::optional<platform::Dictionary>();
  }
  auto properties = bus_->getAllProperties(propertiesOf(peer), kAnswerTime);
  if (!properties) {
    // An older companion does not have the object.
    if (peer == Peer::companion) {
      return std::optional(platform::Dictionary{});
    }
    return properties.error();
  }
  return std::optional(std::move(*properties));
}

platform::ErrorOrNone BusSession::tellDaemon(std::string_view message,
                                             const platform::Dictionary& userInfo) {
  BusAddress address = propertiesOf(Peer::daemon);
  address.interface = address.destination;
  auto call = bus_->newMethodCall(address, message, kDictionary, {userInfo});
  if (!call) {
    return call.error();
  }
  call->setAutoStart(false);
  const auto reply = bus_->call(*call, kAnswerTime);
  return reply ? std::nullopt : platform::ErrorOrNone(reply.error());
}

platform::ErrorOrNone BusSession::post(std::string_view name) {
  return bus_->emitSignal(kNotifyPath, kNotifyInterface, kPosted, "s", {name});
}

platform::ErrorOrNone BusSession::post(const platform::Notification& notification) {
  return bus_->emitSignal(
      kDistributedPath, kDistributedInterface, kPosted, "ssa{sv}",
      {notification.name, notification.object.value_or(""), notification.userInfo});
}

platform::Result<std::unique_ptr<platform::Observation>> BusSession::follow(SessionEvents events) {
  const auto shared = std::make_shared<SessionEvents>(std::move(events));
  auto following = std::make_unique<Following>();
  platform::ErrorOrNone failed;
  const auto keep = [&](platform::Result<BusSlot> slot) {
    if (slot) {
      following->slots.push_back(std::move(*slot));
    } else {
      failed = slot.error();
    }
  };
  const auto match = [&](const std::string& rule, platform::linux::BusConnection::Callback then) {
    keep(bus_->addMatch("type='signal'," + rule, std::move(then)));
  };
  if (shared->peerChanged) {
    for (const Peer peer : {Peer::daemon, Peer::companion}) {
      keep(bus_->watchOwner(
          propertiesOf(peer).destination,
          [shared, peer](const std::string& owner) { shared->peerChanged(peer, !owner.empty()); }));
    }
  }
  if (shared->statusChanged) {
    const BusAddress daemon = propertiesOf(Peer::daemon);
    match(fmt::format("sender='{}',path='{}',interface='org.freedesktop.DBus.Properties',"
                      "member='PropertiesChanged'",
                      daemon.destination, daemon.path),
          [shared](const BusMessage& message) { receiveProperties(*shared, message); });
  }
  if (shared->posted) {
    match(
        fmt::format("path='{}',interface='{}',member='{}'", kNotifyPath, kNotifyInterface, kPosted),
        [shared](const BusMessage& message) { receivePosting(*shared, message); });
  }
  if (shared->distributed) {
    match(fmt::format("path='{}',interface='{}',member='{}'", kDistributedPath,
                      kDistributedInterface, kPosted),
          [shared](const BusMessage& message) { receiveDistributed(*shared, message); });
  }
  if (failed) {
    return *failed;
  }
  return std::unique_ptr<platform::Observation>(std::move(following));
}

bool BusSession::waitUntil(const std::function<bool()>& condition, platform::TimeInterval limit) {
  return loop_.runUntil([&] { return isLost_ || condition(); }, limit) && !isLost_;
}

bool BusSession::serveUntilInterrupted() {
  loop_.onTerminationSignal([this] { loop_.stop(0); });
  return loop_.run() == 0 && !isLost_;
}

}  // namespace wrixel2::ctl
