#include "protocol/MBModel/MBHelper.h"

#include <charconv>
#include <limits>
#include <memory>
#include <utility>

#include <fmt/format.h>

#include "protocol/MBModel/Text.h"

namespace wrixel2::mbmodel {

std::string MBHelper::byte2HexString(std::uint8_t byte) { return fmt::format("{:02x}", byte); }

std::uint32_t MBHelper::hexString2Int(std::string_view text) {
  text = trimmed(text);
  if (text.starts_with("0x") || text.starts_with("0X")) {
    text.remove_prefix(2);
  }
  std::uint32_t value = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), value, 16);
  return result.ec == std::errc::result_out_of_range ? std::numeric_limits<std::uint32_t>::max()
                                                     : value;
}

std::uint8_t MBHelper::CRC8WithBytes(platform::ByteView bytes) {
  std::uint8_t crc = 0;
  for (const auto byte : bytes) {
    crc ^= byte;
    for (int bit = 0; bit < 8; ++bit) {
      const bool low = (crc & 1) != 0;
      crc >>= 1;
      if (low) {
        crc ^= 0x8C;
      }
    }
  }
  return crc;
}

MBHelper::Counter MBHelper::counter(std::size_t target, platform::Task action) {
  struct State {
    std::size_t count = 0;
    platform::Task action;
  };
  auto state = std::make_shared<State>();
  state->action = std::move(action);
  return [state = std::move(state), target] {
    if (++state->count == target) {
      // Whatever the action holds goes with it, although copies of the counter may stay for long.
      const platform::Task finalAction = std::move(state->action);
      finalAction();
    }
  };
}

MBHelper::Counter MBHelper::serviceCounter(std::size_t target, platform::Task action) {
  return counter(target, std::move(action));
}

}  // namespace wrixel2::mbmodel
