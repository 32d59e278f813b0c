#pragma once

#include <cstddef>

#include "platform/Error.h"

namespace wrixel2::platform::linux {

/// What a property list may be at most. The files that are read have a few kilobytes.
inline constexpr std::size_t kMaximumPropertyListBytes = std::size_t{1} << 20;
inline constexpr int kMaximumPropertyListDepth = 32;

/// Counts what a reader makes. A binary file of a few hundred bytes can refer to its parts so often
/// that they do not fit into any memory.
class PropertyListBudget {
 public:
  /// An error when one more value, with that many bytes of text or data, is too much.
  ErrorOrNone spend(std::size_t bytes) {
    constexpr std::size_t kMaximumValues = 50'000;
    constexpr std::size_t kMaximumBytes = std::size_t{8} << 20;
    bytes_ += bytes;
    if (++values_ > kMaximumValues || bytes_ > kMaximumBytes) {
      return Error{0, "the property list is too large"};
    }
    return std::nullopt;
  }

 private:
  std::size_t values_ = 0;
  std::size_t bytes_ = 0;
};

}  // namespace wrixel2::platform::linux
