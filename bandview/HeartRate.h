#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/Bytes.h"

namespace wrixel2::bandview {

/// The heart rate as the band's wearer would see it: what the last measurement gave, and whether
/// one runs.
class HeartRate {
 public:
  /// Something was written to the band: a command to measure starts a measurement.
  void written(std::string_view characteristic, platform::ByteView value);
  /// Beats per minute; 0 when the band could not read any.
  void measured(int rate);
  /// A measurement whose link ends has no result.
  void linkEnded() { isMeasuring_ = false; }

  bool isMeasuring() const { return isMeasuring_; }
  std::string text() const;

 private:
  bool isMeasuring_ = false;
  std::optional<int> last_;
};

}  // namespace wrixel2::bandview
