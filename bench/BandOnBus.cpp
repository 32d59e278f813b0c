#include "bench/BandOnBus.h"

#include <utility>

namespace wrixel2::bench {
namespace {

using platform::linux::BusMessage;

/// What the daemon falls back on where nobody tells it a pairing key.
constexpr const char* kFallbackKey = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";

/// Whether what is written is a call's icon and text, and not, say, parameters of the link.
bool writesCall(const BusMessage& message) {
  const auto arguments = message.arguments();
  const auto* value = arguments && !arguments->empty() ? arguments->front().data() : nullptr;
  return value != nullptr && value->size() > 2 && (*value)[0] == 0x03 && (*value)[1] == 0x01;
}

}  // namespace

BandOnBus::BandOnBus(platform::linux::LinuxRunLoop& loop, platform::Log& log,
                     const platform::TimeZone& zone)
    : bus_(openBus(loop, privateBus_.address())),
      platform_{loop,
                clock_,
                zone,
                log,
                rest_.messageCenters,
                rest_.darwinNotifyCenter,
                rest_.distributedNotificationCenter,
                rest_.objectExporter,
                rest_.radio,
                rest_.healthStore,
                rest_.propertyLists,
                rest_.userDefaults,
                rest_.fileManager,
                rest_.systemInfo,
                rest_.serviceManager},
      band_(platform_),
      bluetoothd_(*bus_, band_) {
  band_.setPairingKey(kFallbackKey);
  auto filter = bus_->addFilter([this](const BusMessage& message) {
    const auto now = std::chrono::steady_clock::now();
    if (!written_ && message.member() == "WriteValue" && writesCall(message)) {
      written_ = now;
      writtenPath_ = message.path();
    }
  });
  if (!filter) {
    giveUp(filter.error().localizedDescription);
  }
  filter_ = std::move(*filter);
  bluetoothd_.appear();
}

}  // namespace wrixel2::bench
