#include "bandradio/BandAdapter.h"

#include <cerrno>
#include <chrono>
#include <utility>

#include <fmt/format.h>

#include "band/VirtualBand.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::bandradio {

using platform::Error;
using platform::ErrorOrNone;

namespace {

Error explained(std::string_view what, const Error& error) {
  return {error.code, fmt::format("{}: {}", what, error.localizedDescription)};
}

}  // namespace

platform::Result<std::unique_ptr<BandAdapter>> BandAdapter::take(
    const platform::linux::BusConnection& bus, std::string_view name, std::string_view bandName) {
  auto adapter =
      std::unique_ptr<BandAdapter>(new BandAdapter(bus, fmt::format("/org/bluez/{}", name)));
  auto address = adapter->text("Address");
  if (!address) {
    return explained("There is no such adapter, or no bluetoothd", address.error());
  }
  if (!band::VirtualBand::isAddress(*address)) {
    return Error{EINVAL, "The adapter has no address"};
  }
  adapter->address_ = std::move(*address);
  if (const auto error = adapter->switchOn()) {
    return explained("The adapter cannot be switched on", *error);
  }
  auto ownName = adapter->text("Alias");
  if (const auto error = ownName ? adapter->rename(bandName) : ownName.error()) {
    return explained("The adapter cannot be given the band's name", *error);
  }
  adapter->ownName_ = std::move(*ownName);
  return adapter;
}

BandAdapter::BandAdapter(const platform::linux::BusConnection& bus, std::string path)
    : bus_(bus), object_{"org.bluez", std::move(path), "org.bluez.Adapter1"} {}

BandAdapter::~BandAdapter() {
  if (!ownName_.empty()) {
    rename(ownName_);
  }
}

platform::Result<std::string> BandAdapter::text(const char* property) const {
  const auto value = bus_.getProperty(object_, property);
  if (!value) {
    return value.error();
  }
  return value->text() == nullptr ? std::string() : *value->text();
}

ErrorOrNone BandAdapter::switchOn() const {
  // bluetoothd refuses while it is switching the adapter itself, as it does when it starts.
  constexpr int kAttempts = 50;
  constexpr std::chrono::milliseconds kPause{100};
  ErrorOrNone error;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    error = bus_.setProperty(object_, "Powered", "b", true);
    if (!error || error->localizedDescription.find("org.bluez.Error.Busy") == std::string::npos) {
      break;
    }
    bus_.loop().runUntil([] { return false; }, kPause);
  }
  return error;
}

ErrorOrNone BandAdapter::rename(std::string_view name) const {
  return bus_.setProperty(object_, "Alias", "s", name);
}

}  // namespace wrixel2::bandradio
