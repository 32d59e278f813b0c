#include "ctl/BusSession.h"

#include <list>
#include <utility>

#include <errno.h>
#include <fmt/format.h>

#include "ctl/ExitStatus.h"
#include "platform/linux/BusService.h"
#include "platform/linux/SdBusDistributedNotificationCenter.h"

namespace wrixel2::ctl {

namespace {

using platform::Array;
using platform::linux::BusAddress;
using platform::linux::BusMessage;
using platform::linux::BusService;

constexpr auto kAnswerTime = std::chrono::seconds(5);
constexpr const char* kNotifyPath = "/org/corvale/NotifyCenter";
constexpr const char* kNotifyInterface = "org.corvale.NotifyCenter";
constexpr const char* kDistributedPath = "/org/corvale/DistributedNotificationCenter";
constexpr const char* kDistributedInterface = "org.corvale.DistributedNotificationCenter";
constexpr const char* kPosted = "Posted";
constexpr const char* kDistributedArguments = "ssa{sv}";

/// Where a program is, with the interface of its properties.
BusAddress propertiesOf(Peer peer) {
  if (peer == Peer::daemon) {
    return {"org.corvale.wrixel2dIpc", "/org/corvale/wrixel2dIpc", "org.corvale.wrixel2d.Status"};
  }
  return {"org.corvale.wrixel2Ipc", "/org/corvale/wrixel2Ipc", "org.corvale.wrixel2.Companion"};
}

/// The programs that one follow() is about.
class Following final : public platform::Observation {
 public:
  std::list<BusService> services;
};

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
  const BusAddress daemon = propertiesOf(Peer::daemon);
  return callDaemon({{}, daemon.path, daemon.destination}, message, "a{sv}", {userInfo});
}

platform::ErrorOrNone BusSession::post(std::string_view name) {
  return callDaemon({{}, kNotifyPath, kNotifyInterface}, "Post", "s", {name});
}

platform::ErrorOrNone BusSession::post(const platform::Notification& notification) {
  return callDaemon({{}, kDistributedPath, kDistributedInterface}, "Post", kDistributedArguments,
                    {notification.name, notification.object.value_or(""), notification.userInfo});
}

platform::ErrorOrNone BusSession::callDaemon(BusAddress object, std::string_view member,
                                             std::string_view signature, const Array& arguments) {
  object.destination = propertiesOf(Peer::daemon).destination;
  auto call = bus_->newMethodCall(object, member, signature, arguments);
  if (!call) {
    return call.error();
  }
  call->setAutoStart(false);
  const auto reply = bus_->call(*call, kAnswerTime);
  if (!reply && (reply.error().code == ENXIO || reply.error().code == EHOSTUNREACH)) {
    return failure(ExitStatus::notRunning, "the daemon does not run");
  }
  return reply ? std::nullopt : platform::ErrorOrNone(reply.error());
}

platform::Result<std::unique_ptr<platform::Observation>> BusSession::follow(SessionEvents events) {
  const auto shared = std::make_shared<SessionEvents>(std::move(events));
  auto following = std::make_unique<Following>();
  for (const Peer peer : {Peer::daemon, Peer::companion}) {
    const BusAddress status = propertiesOf(peer);
    BusService& service = following->services.emplace_back(*bus_, status.destination);
    if (peer == Peer::daemon && shared->statusChanged) {
      service.onSignal(
          "org.freedesktop.DBus.Properties", "PropertiesChanged", "sa{sv}as",
          [shared](const BusMessage&, const Array& arguments) {
            shared->statusChanged(*arguments[1].dictionary());
          },
          fmt::format(",path='{}',arg0='{}'", status.path, status.interface));
    }
    if (shared->posted) {
      service.onSignal(
          kNotifyInterface, kPosted, "s",
          [shared](const BusMessage&, const Array& arguments) {
            shared->posted(*arguments[0].text());
          },
          fmt::format(",path='{}'", kNotifyPath));
    }
    if (shared->distributed) {
      service.onSignal(
          kDistributedInterface, kPosted, kDistributedArguments,
          [shared, peer](const BusMessage&, const Array& arguments) {
            shared->distributed(
                peer,
                platform::linux::SdBusDistributedNotificationCenter::notificationFromArguments(
                    arguments));
          },
          fmt::format(",path='{}'", kDistributedPath));
    }
    const auto error = service.startAndWait([shared, peer](bool runs) {
      if (shared->peerChanged) {
        shared->peerChanged(peer, runs);
      }
    });
    if (error) {
      return *error;
    }
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
