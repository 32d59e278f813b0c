#pragma once

#include <cstdint>
#include <string>

#include "platform/Bytes.h"

namespace wrixel2::mbmodel {

/// The payload of "realtimeSteps": the day's counters.
class MBActivityModel {
 public:
  MBActivityModel() = default;
  /// A payload of less than 13 bytes leaves the counters zero.
  explicit MBActivityModel(const platform::Bytes& data);

  std::uint64_t steps() const { return steps_; }
  void setSteps(std::uint64_t steps) { steps_ = steps; }
  /// Metres.
  std::uint64_t distance() const { return distance_; }
  void setDistance(std::uint64_t distance) { distance_ = distance; }
  /// Kilocalories, as the band counts them.
  std::uint64_t calories() const { return calories_; }
  void setCalories(std::uint64_t calories) { calories_ = calories; }

  std::string description() const;

 private:
  std::uint64_t steps_ = 0;
  std::uint64_t distance_ = 0;
  std::uint64_t calories_ = 0;
};

}  // namespace wrixel2::mbmodel
