#include "companion/DesktopUserAlerts.h"

#include <string>

#include <fmt/format.h>

namespace wrixel2::companion {

namespace {

using platform::Array;
using platform::Dictionary;
using platform::linux::BusMessage;

/// The body is markup to whoever shows it.
std::string escaped(std::string_view text) {
  std::string markup;
  for (const char c : text) {
    switch (c) {
      case '&':
        markup += "&amp;";
        break;
      case '<':
        markup += "&lt;";
        break;
      case '>':
        markup += "&gt;";
        break;
      default:
        markup += c;
    }
  }
  return markup;
}

}  // namespace

void DesktopUserAlerts::present(std::string_view title, std::string_view message) {
  const auto call =
      bus_.newMethodCall({"org.freedesktop.Notifications", "/org/freedesktop/Notifications",
                          "org.freedesktop.Notifications"},
                         "Notify", "susssasa{sv}i",
                         {"wrixel2", 0, "", title, escaped(message), Array{}, Dictionary{}, -1});
  if (!call) {
    logger_.error(fmt::format("Could not show \"{}\": {}", title, description(call.error())));
    return;
  }
  auto pending = bus_.callAsync(*call, [logger = logger_,
                                        shown = std::string(title)](const BusMessage& reply) {
    if (reply.isError()) {
      logger.warning(fmt::format("Could not show \"{}\": {}", shown, description(reply.error())));
    }
  });
  if (pending) {
    pending->detach();
  } else {
    logger_.error(fmt::format("Could not show \"{}\": {}", title, description(pending.error())));
  }
}

}  // namespace wrixel2::companion
