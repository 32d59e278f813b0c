#include "bandview/NotificationServer.h"

#include <algorithm>

namespace wrixel2::bandview {

namespace {

using platform::Array;
using platform::linux::BusInterface;
using platform::linux::BusMessage;

constexpr const char* kName = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";

}  // namespace

platform::Result<std::unique_ptr<NotificationServer>> NotificationServer::start(
    platform::linux::BusConnection& bus, Callback callback) {
  std::unique_ptr<NotificationServer> server(new NotificationServer(bus, std::move(callback)));
  if (auto error = server->serve()) {
    return *error;
  }
  return server;
}

platform::ErrorOrNone NotificationServer::serve() {
  BusInterface interface;
  interface.name = kName;
  interface.methods = {
      {"GetCapabilities",
       {},
       {{"capabilities", "as"}},
       [](const BusMessage& call) {
         call.reply("as", {platform::Value(Array{"body", "persistence"})});
       }},
      {"GetServerInformation",
       {},
       {{"name", "s"}, {"vendor", "s"}, {"version", "s"}, {"spec_version", "s"}},
       [](const BusMessage& call) {
         call.reply("ssss", {"wrixel2-bandview", "wrixel2", WRIXEL2_VERSION, "1.2"});
       }},
      {"Notify",
       {{"app_name", "s"},
        {"replaces_id", "u"},
        {"app_icon", "s"},
        {"summary", "s"},
        {"body", "s"},
        {"actions", "as"},
        {"hints", "a{sv}"},
        {"expire_timeout", "i"}},
       {{"id", "u"}},
       [this](const BusMessage& call) { notify(call); }},
      {"CloseNotification", {{"id", "u"}}, {}, [this](const BusMessage& call) { close(call); }},
  };
  interface.signals = {{"NotificationClosed", {{"id", "u"}, {"reason", "u"}}},
                       {"ActionInvoked", {{"id", "u"}, {"action_key", "s"}}}};
  auto slot = bus_.addInterface(kPath, std::move(interface));
  if (!slot) {
    return slot.error();
  }
  interface_ = std::move(*slot);
  return bus_.requestName(kName);
}

void NotificationServer::notify(const BusMessage& call) {
  const auto arguments = call.arguments();
  if (!arguments) {
    call.replyError(arguments.error());
    return;
  }
  const Array& values = *arguments;
  call.reply("u", {open(static_cast<std::uint32_t>(values[1].longValue()))});
  const auto text = [&values](std::size_t index) {
    return values[index].text() != nullptr ? *values[index].text() : std::string();
  };
  callback_({text(0), text(3), text(4)});
}

std::uint32_t NotificationServer::open(std::uint32_t replaced) {
  if (replaced != 0 && std::find(open_.begin(), open_.end(), replaced) != open_.end()) {
    return replaced;
  }
  if (open_.size() == kMostOpen) {
    emitClosed(open_.front(), Reason::expired);
    open_.pop_front();
  }
  open_.push_back(++lastId_);
  return lastId_;
}

void NotificationServer::close(const BusMessage& call) {
  const auto arguments = call.arguments();
  const auto id = arguments ? static_cast<std::uint32_t>((*arguments)[0].longValue()) : 0;
  const auto found = std::find(open_.begin(), open_.end(), id);
  // Closing one that is not open fails with an empty message, as Desktop Notifications 1.2 has it.
  if (found == open_.end()) {
    call.replyError("org.freedesktop.DBus.Error.Failed", "");
    return;
  }
  open_.erase(found);
  call.reply("", {});
  emitClosed(id, Reason::closedByCall);
}

void NotificationServer::emitClosed(std::uint32_t id, Reason reason) const {
  bus_.emitSignal(kPath, kName, "NotificationClosed", "uu",
                  {id, static_cast<std::uint32_t>(reason)});
}

}  // namespace wrixel2::bandview
