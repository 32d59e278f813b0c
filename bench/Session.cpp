#include "bench/Session.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::bench {
namespace {

using platform::Dictionary;
using platform::linux::BusAddress;
using platform::linux::BusConnection;
using platform::linux::BusMessage;

}  // namespace

void giveUp(const std::string& what) {
  fmt::print(stderr, "wrixel2_bench: {}\n", what);
  std::exit(1);
}

std::unique_ptr<BusConnection> openBus(platform::linux::LinuxRunLoop& loop,
                                       const std::string& address) {
  auto opened = BusConnection::openAddress(loop, address);
  if (!opened) {
    giveUp(opened.error().localizedDescription);
  }
  return std::move(*opened);
}

BusAddress centerAddress(std::string_view name) {
  std::string path = fmt::format("/{}", name);
  std::replace(path.begin(), path.end(), '.', '/');
  return {std::string(name), path, std::string(name)};
}

Session::Session(platform::linux::LinuxRunLoop& loop, platform::Log& log)
    : loop_(loop), bus_(openBus(loop, privateBus_.address())), centers_(*bus_, log) {}

void Session::serveSettings(Dictionary settings) {
  companionCenter_ = centers_.centerNamed(kCompanionCenter);
  companionCenter_->registerForMessageNameWithReply(
      "getPrefsDict", [settings = std::move(settings)](std::string_view, const Dictionary&) {
        return platform::Result<Dictionary>(settings);
      });
  companionCenter_->registerForMessageNameWithReply(
      "appInfo", [](std::string_view, const Dictionary&) { return Dictionary(); });
  companionCenter_->registerForMessageName("alertUser", [](std::string_view, const Dictionary&) {});
  if (const auto error = companionCenter_->runServer()) {
    giveUp(error->localizedDescription);
  }
}

std::unique_ptr<Process> Session::start(std::vector<std::string> arguments, const std::string& name,
                                        const std::string& systemBusAddress) {
  const std::string nowhere = "unix:path=" + directory_.path("no-system-bus");
  const Process::Environment environment = {
      {"PATH", std::getenv("PATH")},
      {"HOME", directory_.path()},
      {"XDG_CONFIG_HOME", directory_.path("config")},
      {"XDG_DATA_HOME", directory_.path("data")},
      {"XDG_STATE_HOME", directory_.path("state")},
      {"DBUS_SESSION_BUS_ADDRESS", address()},
      {"DBUS_SYSTEM_BUS_ADDRESS", systemBusAddress.empty() ? nowhere : systemBusAddress},
  };
  bool isThere = false;
  const auto match = bus_->addMatch(
      fmt::format("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='{}'",
                  name),
      [&isThere](const BusMessage&) { isThere = true; });
  if (!match) {
    giveUp(match.error().localizedDescription);
  }
  auto process = std::make_unique<Process>(std::move(arguments), environment);
  waitUntil(name, [&isThere] { return isThere; });
  return process;
}

void Session::waitUntil(std::string_view what, const std::function<bool()>& condition) {
  if (!loop_.runUntil(condition, std::chrono::seconds(20))) {
    giveUp(fmt::format("waited in vain for {}", what));
  }
}

void Session::waitFor(platform::TimeInterval time) {
  loop_.runUntil([] { return false; }, time);
}

void Session::tell(const BusAddress& center, std::string_view message, const Dictionary& userInfo) {
  auto call = bus_->newMethodCall(center, message, "a{sv}", {userInfo});
  if (!call) {
    giveUp(call.error().localizedDescription);
  }
  call->setExpectsReply(false);
  if (const auto error = bus_->send(*call)) {
    giveUp(error->localizedDescription);
  }
}

}  // namespace wrixel2::bench
