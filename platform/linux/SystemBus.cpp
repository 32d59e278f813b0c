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

SystemBus::SystemBus(LinuxRunLoop& loop, SystemBusObserver& observer, std::string address)
    : loop_(loop), observer_(observer), address_(std::move(address)) {}

SystemBus::~SystemBus() = default;

void SystemBus::start() {
  postWhileAlive([this] { connect(); });
}

void SystemBus::postWhileAlive(Task task) {
  loop_.post([life = std::weak_ptr<char>(life_), task = std::move(task)] {
    if (!life.expired()) {
      task();
    }
  });
}

void SystemBus::connect() {
  attemptTimer_.reset();
  // The watch comes first: what happens between a failed attempt and the watch would be missed.
  if (socketWatch_ == nullptr) {
    awaitBus();
  }
  auto opened = address_.empty() ? BusConnection::openSystem(loop_)
                                 : BusConnection::openAddress(loop_, address_);
  ErrorOrNone error = opened ? std::nullopt : ErrorOrNone(opened.error());
  if (!error) {
    connection_ = std::move(*opened);
    error = observer_.busConnected(*connection_);
  }
  if (error) {
    observer_.busUnavailable(*error);
    connection_.reset();
    return;
  }
  socketWatch_.reset();
  attemptTimer_.reset();
  // In a turn of its own: the connection is busy telling us.
  connection_->onDisconnected([this] { postWhileAlive([this] { connectionLost(); }); });
}

void SystemBus::awaitBus() {
  const std::string path = address_.empty() ? systemSocketPath() : socketPathOf(address_);
  if (path.empty()) {
    attemptTimer_ = loop_.scheduledTimer(kBlindAttempt, true, [this] { connect(); });
    return;
  }
  socketWatch_ = std::make_unique<SocketWatch>(
      loop_, path, [this] { postWhileAlive([this] { socketChanged(); }); });
}

void SystemBus::socketChanged() {
  if (connection_ != nullptr) {
    return;
  }
  connect();
  if (connection_ == nullptr) {
    attemptTimer_ = loop_.scheduledTimer(kSecondAttempt, false, [this] { connect(); });
  }
}

void SystemBus::connectionLost() {
  observer_.busUnavailable({ENOTCONN, "The system bus has ended the connection"});
  connection_.reset();
  connect();
}

}  // namespace wrixel2::platform::linux
