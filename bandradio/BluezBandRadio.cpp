#include "bandradio/BluezBandRadio.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "band/VirtualBand.h"
#include "bandradio/ManagementSocket.h"

namespace wrixel2::bandradio {

using platform::Bytes;
using platform::ByteView;
using platform::Error;
using platform::ErrorOrNone;

namespace {

/// An address and its type.
constexpr std::size_t kHostLength = 7;
constexpr std::uint8_t kPublicLE = 1;
constexpr std::uint8_t kRandomLE = 2;

/// "24:4b:fe:01:02:03": the interface gives addresses from the last field on.
std::string textOfAddress(ByteView host) {
  return fmt::format("{:02x}:{:02x}:{:02x}:{:02x}:{:02x}:{:02x}", host[5], host[4], host[3],
                     host[2], host[1], host[0]);
}

}  // namespace

BluezBandRadio::BluezBandRadio(band::VirtualBand& band, platform::linux::BusConnection& systemBus,
                               std::unique_ptr<ManagementSocket> management,
                               const std::string& adapterPath, platform::RunLoop& runLoop,
                               platform::Log& log)
    : band_(band),
      logger_(log, "BluezBandRadio"),
      management_(std::move(management)),
      advertiser_(*management_, runLoop, log),
      server_(systemBus, adapterPath, band, log,
              {[this](bool isRegistered) {
                 logger_.info(isRegistered ? "The band's services can be found"
                                           : "The band's services are gone with bluetoothd");
                 presenceChanged();
               },
               // The kernel tells of a link before bluetoothd can ask anything over it, but on
               // another socket.
               [this] { management_->handlePending(); }}) {
  management_->onEvent(
      [this](std::uint16_t event, ByteView parameters) { handleEvent(event, parameters); });
  band_.setRadio(this);
}

BluezBandRadio::~BluezBandRadio() {
  band_.setRadio(nullptr);
  management_->onEvent(nullptr);
  disconnect();
}

ErrorOrNone BluezBandRadio::start() { return server_.start(); }

void BluezBandRadio::notify(const platform::UUID& service, const platform::UUID& characteristic,
                            const Bytes& value) {
  server_.notify(service, characteristic, value);
}

ErrorOrNone BluezBandRadio::endLink(long code) {
  if (code == platform::bluetooth_error::connectionTimeout) {
    return Error{EOPNOTSUPP, "A real link does not time out on demand"};
  }
  disconnect();
  return std::nullopt;
}

void BluezBandRadio::presenceChanged() {
  const bool isOnAir = band_.isAdvertising() && server_.isRegistered();
  advertiser_.setAdvertisement(isOnAir ? std::optional(band_.advertisement()) : std::nullopt);
  if (!band_.isInRange()) {
    disconnect();
  }
}

void BluezBandRadio::disconnect() {
  if (host_) {
    management_->send(management::kDisconnect, Bytes(host_->begin(), host_->end()));
  }
}

void BluezBandRadio::handleEvent(std::uint16_t event, ByteView parameters) {
  switch (event) {
    case management::kDeviceConnected:
      hostConnected(parameters);
      break;
    case management::kDeviceDisconnected:
      hostDisconnected(parameters);
      break;
    case management::kNewSettings:
      settingsChanged(parameters);
      break;
    case management::kAdvertisingRemoved:
      if (!parameters.empty()) {
        advertiser_.advertisingRemoved(parameters[0]);
      }
      break;
  }
}

void BluezBandRadio::hostConnected(ByteView parameters) {
  // Address, type, flags of 32 bits.
  constexpr std::size_t kFlags = kHostLength;
  constexpr std::uint8_t kInitiatedHere = 0x08;
  if (parameters.size() <= kFlags || host_ || (parameters[kFlags] & kInitiatedHere) != 0 ||
      (parameters[kHostLength - 1] != kPublicLE && parameters[kHostLength - 1] != kRandomLE)) {
    return;  // Not a host of the band: the adapter may have other work.
  }
  host_.emplace();
  std::ranges::copy(parameters.first(kHostLength), host_->begin());
  logger_.info("Connected by " + textOfAddress(*host_));
  band_.linkUp();
}

void BluezBandRadio::hostDisconnected(ByteView parameters) {
  if (host_ && parameters.size() >= kHostLength &&
      std::ranges::equal(parameters.first(kHostLength), *host_)) {
    linkEnded();
  }
}

void BluezBandRadio::settingsChanged(ByteView parameters) {
  constexpr std::uint8_t kPowered = 0x01;
  const bool isPowered = !parameters.empty() && (parameters[0] & kPowered) != 0;
  if (isPowered == isPowered_) {
    return;
  }
  isPowered_ = isPowered;
  logger_.info(isPowered ? "The adapter has power" : "The adapter has lost power");
  if (isPowered) {
    advertiser_.adapterPoweredOn();
  } else if (host_) {
    linkEnded();
  }
}

void BluezBandRadio::linkEnded() {
  logger_.info("The link to " + textOfAddress(*host_) + " has ended");
  host_.reset();
  band_.linkDown();
}

}  // namespace wrixel2::bandradio
