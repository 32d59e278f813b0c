#pragma once

#include <algorithm>
#include <cstddef>
#include <span>

#include "platform/Date.h"

namespace wrixel2::platform {

/// How long to wait before something that failed is tried once more: step by step longer, and as
/// long as the last step from then on.
class Backoff {
 public:
  /// At least one step; what they lie in outlives this.
  explicit Backoff(std::span<const TimeInterval> steps) : steps_(steps) {}

  /// The pause before the next attempt.
  TimeInterval next() {
    const std::size_t step = std::min(taken_, steps_.size() - 1);
    ++taken_;
    return steps_[step];
  }

  /// It worked: the next pause is the first one again.
  void reset() { taken_ = 0; }

 private:
  std::span<const TimeInterval> steps_;
  std::size_t taken_ = 0;
};

}  // namespace wrixel2::platform
