#include "companion/LogindSleepInhibitor.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::linux::BusMessage;
using platform::linux::FileDescriptor;

/// Errors that say that there is no login manager.
constexpr std::string_view kAbsent[] = {"org.freedesktop.DBus.Error.ServiceUnknown",
                                        "org.freedesktop.DBus.Error.NameHasNoOwner",
                                        "org.freedesktop.DBus.Error.NoReply"};

bool saysAbsent(const BusMessage& reply) {
  return std::ranges::find(kAbsent, reply.errorName()) != std::end(kAbsent);
}

}  // namespace

void LogindSleepInhibitor::busFound(const platform::linux::BusConnection& systemBus) {
  bus_ = &systemBus;
  if (isWanted_ && !lock_) {
    ask();
  }
}

void LogindSleepInhibitor::busLost() {
  pending_.reset();
  bus_ = nullptr;
}

void LogindSleepInhibitor::take() {
  isWanted_ = true;
  if (!lock_ && !pending_ && bus_ != nullptr) {
    ask();
  }
}

void LogindSleepInhibitor::giveBack() {
  isWanted_ = false;
  lock_ = FileDescriptor();
}

void LogindSleepInhibitor::ask() {
  auto request = bus_->newMethodCall(
      {"org.freedesktop.login1", "/org/freedesktop/login1", "org.freedesktop.login1.Manager"},
      "Inhibit", "ssss", {"sleep", "wrixel2", "Serving the band", "delay"});
  if (!request) {
    return;
  }
  request->setAutoStart(false);
  auto pending = bus_->callAsync(*request, [this](const BusMessage& reply) { answered(reply); });
  if (pending) {
    pending_ = std::move(*pending);
  }
}

void LogindSleepInhibitor::answered(const BusMessage& reply) {
  pending_.reset();
  auto lock =
      reply.isError() ? platform::Result<FileDescriptor>(reply.error()) : reply.fileDescriptor();
  if (!lock) {
    if (!saysAbsent(reply) && !std::exchange(isRefusalLogged_, true)) {
      logger_.warning(
          fmt::format("The phone may fall asleep too early: {}", description(lock.error())));
    }
    return;
  }
  if (isWanted_) {
    lock_ = std::move(*lock);
  }
}

}  // namespace wrixel2::companion
