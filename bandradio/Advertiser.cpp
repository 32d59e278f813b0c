#include "bandradio/Advertiser.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "bandradio/AdvertisingData.h"
#include "bandradio/ManagementSocket.h"

namespace wrixel2::bandradio {

using platform::Bytes;
using platform::ByteView;

namespace {

/// Others use the interface too, and the kernel takes one such command at a time.
constexpr std::chrono::milliseconds kBusyPause{50};

/// Flags 32 bits (1: connectable), duration and time-out 16 bits (0: the kernel's, for ever), the
/// lengths of both parts, the parts.
Bytes parametersOf(const band::BandAdvertisement& advertisement) {
  const AdvertisingData data = encodeAdvertising(advertisement);
  Bytes parameters{1, 0, 0, 0, 0, 0, 0, 0};
  parameters.push_back(static_cast<std::uint8_t>(data.advertisement.size()));
  parameters.push_back(static_cast<std::uint8_t>(data.scanResponse.size()));
  parameters.insert(parameters.end(), data.advertisement.begin(), data.advertisement.end());
  parameters.insert(parameters.end(), data.scanResponse.begin(), data.scanResponse.end());
  return parameters;
}

}  // namespace

Advertiser::Advertiser(ManagementSocket& management, platform::RunLoop& runLoop, platform::Log& log)
    : management_(management),
      runLoop_(runLoop),
      logger_(log, "Advertiser"),
      self_(std::make_shared<Advertiser*>(this)) {
  readFeatures();
}

Advertiser::~Advertiser() {
  // The kernel would keep it on the air after the end of the process.
  if (instance_ != 0 && (onAir_ || isBusy_)) {
    management_.send(management::kRemoveAdvertising, {instance_});
  }
}

void Advertiser::readFeatures() {
  isBusy_ = true;
  management_.send(management::kReadAdvertisingFeatures, {},
                   [weak = std::weak_ptr(self_)](std::uint8_t status, ByteView parameters) {
                     const auto self = weak.lock();
                     if (!self) {
                       return;
                     }
                     Advertiser& advertiser = **self;
                     // Supported flags (32 bits), room in the advertisement, in the scan response,
                     // places.
                     constexpr std::size_t kPlaces = 6;
                     if (status == management::kSuccess && parameters.size() > kPlaces &&
                         parameters[kPlaces] > 0) {
                       advertiser.instance_ = parameters[kPlaces];
                       advertiser.isBusy_ = false;
                       advertiser.reconcile();
                     } else {
                       advertiser.logger_.error(
                           fmt::format("The adapter cannot advertise (status {:#04x})", status));
                     }
                   });
}

void Advertiser::setAdvertisement(const std::optional<band::BandAdvertisement>& advertisement) {
  wanted_ = advertisement ? std::optional(parametersOf(*advertisement)) : std::nullopt;
  reconcile();
}

void Advertiser::advertisingRemoved(std::uint8_t instance) {
  if (instance == instance_ && !isBusy_) {
    onAir_.reset();
    reconcile();
  }
}

void Advertiser::adapterPoweredOn() {
  if (!isBusy_) {
    onAir_.reset();
    reconcile();
  }
}

void Advertiser::reconcile() {
  if (isBusy_ || wanted_ == onAir_) {
    return;
  }
  isBusy_ = true;
  if (wanted_) {
    add();
  } else {
    remove();
  }
}

void Advertiser::add() {
  Bytes parameters{instance_};
  parameters.insert(parameters.end(), wanted_->begin(), wanted_->end());
  management_.send(management::kAddAdvertising, std::move(parameters),
                   [weak = std::weak_ptr(self_), added = *wanted_](std::uint8_t status, ByteView) {
                     if (const auto self = weak.lock()) {
                       (*self)->finished(status, "advertise", added);
                     }
                   });
}

void Advertiser::remove() {
  management_.send(management::kRemoveAdvertising, {instance_},
                   [weak = std::weak_ptr(self_)](std::uint8_t status, ByteView) {
                     if (const auto self = weak.lock()) {
                       // Nothing there to remove is as good.
                       (*self)->finished(
                           status == management::kInvalidParameters ? management::kSuccess : status,
                           "stop advertising", std::nullopt);
                     }
                   });
}

void Advertiser::finished(std::uint8_t status, const char* what, std::optional<Bytes> onAir) {
  isBusy_ = false;
  if (status == management::kSuccess) {
    onAir_ = std::move(onAir);
    reconcile();
  } else if (status == management::kBusy) {
    isBusy_ = true;
    runLoop_.postAfter(kBusyPause, [weak = std::weak_ptr(self_)] {
      if (const auto self = weak.lock()) {
        (*self)->isBusy_ = false;
        (*self)->reconcile();
      }
    });
  } else {
    const std::string_view reason =
        status == management::kPermissionDenied ? ": it takes the capability CAP_NET_ADMIN" : "";
    logger_.error(fmt::format("Cannot {} (status {:#04x}){}", what, status, reason));
  }
}

}  // namespace wrixel2::bandradio
