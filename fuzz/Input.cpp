#include "fuzz/Input.h"

#include <algorithm>
#include <bit>
#include <limits>

namespace wrixel2::fuzz {

using platform::Array;
using platform::Bytes;
using platform::Date;
using platform::Dictionary;
using platform::Value;

std::uint8_t Input::byte() {
  if (rest_.empty()) {
    return 0;
  }
  const std::uint8_t first = rest_.front();
  rest_ = rest_.subspan(1);
  return first;
}

std::size_t Input::below(std::size_t count) { return count == 0 ? 0 : byte() % count; }

std::int64_t Input::integer() {
  constexpr std::int64_t kEnds[] = {0,
                                    -1,
                                    1,
                                    127,
                                    -128,
                                    255,
                                    65535,
                                    999'999,
                                    std::numeric_limits<std::int32_t>::max(),
                                    std::numeric_limits<std::int32_t>::min(),
                                    std::numeric_limits<std::uint32_t>::max(),
                                    std::numeric_limits<std::int64_t>::max(),
                                    std::numeric_limits<std::int64_t>::min()};
  switch (below(3)) {
    case 0:
      return byte();
    case 1:
      return oneOf(kEnds);
    default: {
      std::uint64_t value = 0;
      for (int i = 0; i < 8; ++i) {
        value = value << 8U | byte();
      }
      return static_cast<std::int64_t>(value);
    }
  }
}

Bytes Input::bytes(std::size_t most) {
  const std::size_t count = std::min({std::size_t{byte()}, most, rest_.size()});
  const auto taken = rest_.first(count);
  rest_ = rest_.subspan(count);
  return {taken.begin(), taken.end()};
}

std::string Input::text(std::size_t most) {
  const Bytes taken = bytes(most);
  return {taken.begin(), taken.end()};
}

std::chrono::milliseconds Input::pause() {
  switch (below(3)) {
    case 0:
      return std::chrono::milliseconds(byte() * 4);
    case 1:
      return std::chrono::seconds(byte() % 64);
    default:
      return std::chrono::minutes(byte() % 121);
  }
}

Value Input::value(int depth) {
  switch (below(depth > 0 ? 8 : 6)) {
    case 0:
      return flag();
    case 1:
      return integer();
    case 2:
      return text();
    case 3:
      return bytes();
    case 4:
      return std::bit_cast<double>(integer());
    case 5:
      return Date(std::chrono::seconds(integer() % 10'000'000'000));
    case 6: {
      Array values;
      for (std::size_t left = below(5); left > 0; --left) {
        values.push_back(value(depth - 1));
      }
      return values;
    }
    default:
      return dictionary({}, depth - 1);
  }
}

Dictionary Input::dictionary(std::span<const std::string_view> keys, int depth) {
  Dictionary entries;
  for (const auto key : keys) {
    switch (below(4)) {
      case 0:
        break;
      case 1:
        entries.insert_or_assign(std::string(key), integer());
        break;
      case 2:
        entries.insert_or_assign(std::string(key), text());
        break;
      default:
        entries.insert_or_assign(std::string(key), value(depth));
        break;
    }
  }
  for (std::size_t left = below(3); left > 0; --left) {
    auto key = text(16);
    entries.insert_or_assign(std::move(key), value(depth));
  }
  return entries;
}

std::string_view Input::restAsText() const {
  return {reinterpret_cast<const char*>(rest_.data()), rest_.size()};
}

}  // namespace wrixel2::fuzz
