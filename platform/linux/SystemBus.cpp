#include "platform/linux/SystemBus.h"

#include <string_view>
#include <utility>

#include <errno.h>
#include <stdlib.h>

#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/SocketWatch.h"

namespace wrixel2::platform::linux {
namespace {

constexpr const char* kSystemBusSocket = "/run/dbus/system_bus_socket";

// The file of the address's first transport; empty where there is none to watch.
std::string socketPathOf(const std::string& address) {
  constexpr std::string_view kUnixPath = "unix:path=";
  if (!address.starts_with(kUnixPath)) {
    return {};
  }
  const auto end = address.find_first_of(",;", kUnixPath.size());
  return address.substr(kUnixPath.size(), end - kUnixPath.size());
}

std::string systemSocketPath() {
  const char* address = ::getenv("DBUS_SYSTEM_BUS_ADDRESS");
  return address == nullptr ? kSystemBusSocket : socketPathOf(address);
}

}  // namespace

SystemBus::SystemBus(LinuxRunLoop& loop, SystemBusObserver& observer, std::string address,
                     TimeInterval deadline, std::span<const TimeInterval> pauses)
    : loop_(loop),
      observer_(observer),
      address_(std::move(address)),
      deadline_(deadline),
      pauses_(pauses) {}

SystemBus::~SystemBus() = default;

void SystemBus::start() {
  postDuring(life_, [this] {
    // First: what happens between a failed attempt and the watch would be missed.
    watchSocket();
    connect();
  });
}

void SystemBus::postDuring(const Life& life, Task task) {
  loop_.post([weak = std::weak_ptr<char>(life), task = std::move(task)] {
    if (!weak.expired()) {
      task();
    }
  });
}

void SystemBus::watchSocket() {
  const std::string path = address_.empty() ? systemSocketPath() : socketPathOf(address_);
  if (!path.empty()) {
    socketWatch_ = std::make_unique<SocketWatch>(
        loop_, path, [this] { postDuring(life_, [this] { socketChanged(); }); });
  }
}

void SystemBus::socketChanged() {
  if (!isConnected_) {
    pauses_.reset();
    connect();
  }
}

void SystemBus::connect() {
  timer_.reset();
  connection_.reset();
  attempt_ = std::make_shared<char>();
  // What the connection tells is acted on in a turn of its own: it is busy telling us.
  auto begun = BusConnection::beginSystem(
      loop_, address_, [this] { postDuring(attempt_, [this] { connected(); }); });
  if (!begun) {
    failed(begun.error());
    return;
  }
  connection_ = std::move(*begun);
  connection_->onDisconnected([this] {
    postDuring(attempt_, [this] { failed({ENOTCONN, "The system bus has ended the connection"}); });
  });
  timer_ = loop_.scheduledTimer(deadline_, false,
                                [this] { failed({ETIMEDOUT, "The system bus does not answer"}); });
}

void SystemBus::connected() {
  timer_.reset();
  if (const auto error = observer_.busConnected(*connection_)) {
    failed(*error);
    return;
  }
  isConnected_ = true;
  pauses_.reset();
}

void SystemBus::failed(const Error& error) {
  isConnected_ = false;
  observer_.busUnavailable(error);
  attempt_.reset();
  connection_.reset();
  timer_ = loop_.scheduledTimer(pauses_.next(), false, [this] { connect(); });
}

}  // namespace wrixel2::platform::linux
