#include "bandview/HeartRate.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

#include "platform/UUID.h"

namespace wrixel2::bandview {

namespace {

/// The heart rate service's control point (Bluetooth assigned number).
constexpr std::string_view kControl = "2a39";
constexpr std::array<std::uint8_t, 3> kMeasureOnce{0x15, 0x02, 0x01};
constexpr std::array<std::uint8_t, 3> kMeasureContinuously{0x15, 0x01, 0x01};

}  // namespace

void HeartRate::written(std::string_view characteristic, platform::ByteView value) {
  const auto is = [value](platform::ByteView command) {
    return std::equal(value.begin(), value.end(), command.begin(), command.end());
  };
  if (platform::UUID::fromText(characteristic) == platform::UUID::withString(kControl) &&
      (is(kMeasureOnce) || is(kMeasureContinuously))) {
    isMeasuring_ = true;
  }
}

void HeartRate::measured(int rate) {
  isMeasuring_ = false;
  last_ = rate;
}

std::string HeartRate::text() const {
  if (last_.value_or(0) == 0) {
    return isMeasuring_ ? "measuring…" : last_ ? "no reading" : "not measured yet";
  }
  return fmt::format("{} bpm{}", *last_, isMeasuring_ ? ", measuring…" : "");
}

}  // namespace wrixel2::bandview
