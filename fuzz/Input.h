#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/Value.h"

namespace wrixel2::fuzz {

/// Reads decisions from the bytes that the fuzzer made: one byte for most, front to back, so that
/// a change of one byte changes one decision. What is left out at the end reads as zeros, so every
/// input is a valid one.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  bool isEmpty() const { return rest_.empty(); }

  std::uint8_t byte();
  /// 0 to count - 1; count is at most 256.
  std::size_t below(std::size_t count);
  bool flag() { return (byte() & 1U) != 0; }
  template <typename Item, std::size_t count>
  const Item& oneOf(const Item (&items)[count]) {
    return items[below(count)];
  }
  /// Small numbers, the ends of the usual ranges, or any.
  std::int64_t integer();
  platform::Bytes bytes(std::size_t most = 255);
  std::string text(std::size_t most = 255);
  /// Milliseconds up to a second, seconds up to a minute, or minutes up to two hours.
  std::chrono::milliseconds pause();

  /// Of any kind, nested.
  platform::Value value(int depth = 3);
  /// Some of the keys, others, or none, with values of the kind that is usual or of any.
  platform::Dictionary dictionary(std::span<const std::string_view> keys, int depth = 3);

  platform::ByteView rest() const { return rest_; }
  std::string_view restAsText() const;

 private:
  std::span<const std::uint8_t> rest_;
};

}  // namespace wrixel2::fuzz
