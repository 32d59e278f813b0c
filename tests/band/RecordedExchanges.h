#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "band/VirtualBand.h"
#include "platform/Bytes.h"

namespace wrixel2::band {

/// A random number of the band, and what a host with that pairing key answers. Worked out with
/// other programs, so that an error of ours in what both sides compute does not agree with itself:
/// printf %s KEY | md5sum; printf %s NUMBER | xxd -r -p | openssl enc -aes-128-ecb -nopad -K DIGEST
struct RecordedExchange {
  std::string key;
  std::string_view number;  ///< hexadecimal, as the answer
  std::string_view answer;
};

inline const std::vector<RecordedExchange>& recordedExchanges() {
  static const std::vector<RecordedExchange> kExchanges = {
      {"0123456789abcdef0123456789abcdef", "00112233445566778899aabbccddeeff",
       "4b01feda1caee92764fa94cfe0d58279"},
      {"0123456789abcdef0123456789abcdef", "d4c1a09f27e36b5802f97713be40685a",
       "69a794224322da2102294cdfc8e71c06"},
      {"", "5f3c0e8812b7d94a6601c2ef7d9830a4", "4b97f46deea9c3dfdddc04378bed25f0"},
      {"another key", "00000000000000000000000000000000", "e0f7716f5249b86c192db97be00d4c97"},
      {"a new key", "ffffffffffffffffffffffffffffffff", "bb7352b6ceb82336602ceaccf3da6c88"},
      {"Schlüssel für 鍵 🔑", "7e0b91c65ad3482ff10c64b8e9273d15",
       "0ef54133b36eb4cce1db769c3968b324"},
      {"0123456789012345678901234567890123456789012345678901234567890123",
       "0f1e2d3c4b5a69788796a5b4c3d2e1f0", "bfa9252594c82d64d6b3765a36a54052"},
      {"a key of eighty characters and more, as a maker might come to think of one day: "
       "0123456789",
       "80a1c3e507294b6d8fb1d3f517395b7d", "bdc93a917468b2c1ac3811a45721b190"}};
  return kExchanges;
}

inline platform::Bytes bytesOf(std::string_view hex) {
  platform::Bytes bytes;
  for (std::size_t at = 0; at < hex.size(); at += 2) {
    bytes.push_back(
        static_cast<std::uint8_t>(std::stoul(std::string(hex.substr(at, 2)), nullptr, 16)));
  }
  return bytes;
}

/// Has the band send the exchange's number whenever it is asked for one.
inline void sendNumberOf(const RecordedExchange& exchange, VirtualBand& band) {
  VirtualBand::RandomNumber number{};
  std::ranges::copy(bytesOf(exchange.number), number.begin());
  band.setRandomSource([number] { return number; });
}

}  // namespace wrixel2::band
