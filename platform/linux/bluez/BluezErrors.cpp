#include "platform/linux/bluez/BluezErrors.h"

#include <algorithm>
#include <array>
#include <optional>

#include <fmt/format.h>

namespace wrixel2::platform::bluez {
namespace {

constexpr std::string_view kAttError = "ATT error: 0x";

std::optional<long> attErrorIn(std::string_view text) {
  const auto place = text.find(kAttError);
  if (place == std::string_view::npos) {
    return std::nullopt;
  }
  text.remove_prefix(place + kAttError.size());
  long code = 0;
  std::size_t digits = 0;
  while (digits < text.size() && digits < 2 && hexDigitValue(text[digits])) {
    code = code * 16 + *hexDigitValue(text[digits++]);
  }
  return digits == 0 ? std::nullopt : std::optional<long>(code);
}

template <std::size_t Count>
bool hasErrorName(const BluezReply& reply, const std::array<std::string_view, Count>& names) {
  return std::ranges::find(names, reply.errorName) != names.end();
}

}  // namespace

Error errorOfReply(const BluezReply& reply) {
  long code = bluetooth_error::unknown;
  if (const auto attError = attErrorIn(reply.errorText)) {
    code = *attError;
  } else if (reply.errorText == "Not connected" ||
             reply.errorName == "org.bluez.Error.NotConnected") {
    code = bluetooth_error::notConnected;
  } else if (isUnknownObject(reply)) {
    code = bluetooth_error::invalidHandle;
  }
  return {code, fmt::format("{}: {}", reply.errorName, reply.errorText)};
}

bool isInProgress(const BluezReply& reply) {
  return reply.errorName == "org.bluez.Error.InProgress";
}

bool isUnknownObject(const BluezReply& reply) {
  // Which of them it is depends on the version of the D-Bus library under bluetoothd.
  static constexpr std::array<std::string_view, 4> kNames = {
      "org.freedesktop.DBus.Error.UnknownObject", "org.freedesktop.DBus.Error.UnknownMethod",
      "org.freedesktop.DBus.Error.UnknownInterface", "org.bluez.Error.DoesNotExist"};
  return hasErrorName(reply, kNames);
}

bool isAccessDenied(const BluezReply& reply) {
  return reply.errorName == "org.freedesktop.DBus.Error.AccessDenied";
}

bool isRefusal(const BluezReply& reply) {
  static constexpr std::array<std::string_view, 5> kNames = {
      "org.freedesktop.DBus.Error.AccessDenied", "org.bluez.Error.NotSupported",
      "org.bluez.Error.NotAvailable", "org.bluez.Error.NotAuthorized",
      "org.bluez.Error.InvalidArguments"};
  return hasErrorName(reply, kNames);
}

Error notConnectedError() { return {bluetooth_error::notConnected, "The device is not connected"}; }

Error staleObjectError() {
  return {bluetooth_error::invalidHandle, "The device does not offer the object any more"};
}

Error linkEndError(long code) {
  return {code, code == bluetooth_error::connectionTimeout ? "The link timed out"
                                                           : "The device has disconnected"};
}

}  // namespace wrixel2::platform::bluez
