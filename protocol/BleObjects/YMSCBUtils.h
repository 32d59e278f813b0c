#pragma once

#include <cstdint>
#include <string>

#include "platform/Bytes.h"
#include "platform/UUID.h"

namespace wrixel2::bleobjects {

/// A 128-bit UUID as two words: hi holds its first three groups, lo the last two.
///
/// As a base it is what a family of attributes has in common; all zeros means that there is none,
/// and attributes go by their bare short numbers.
struct yms_u128_t {
  std::uint64_t hi = 0;
  std::uint64_t lo = 0;

  friend bool operator==(const yms_u128_t&, const yms_u128_t&) = default;
};

using yms_u16_t = std::uint16_t;

/// That many bits of the value from the start bit (0 is the lowest) on, right-aligned. Width 1 to
/// 64, within the word.
std::uint64_t getfield64(std::uint64_t value, int startBit, int width);

/// The bitwise OR of both: no carry, and bits already set in the base stay set.
yms_u128_t yms_u128_genAddress(const yms_u128_t& base, const yms_u128_t& offset);

/// The offset in the last group. A negative one is sign-extended over lo.
yms_u128_t yms_u128_genOffset(std::int32_t offset);

/// The offset's 32 bits in the first group, where the standard Bluetooth base has its short
/// numbers.
yms_u128_t yms_u128_genBLEOffset(std::int32_t offset);

/// The low bytes of both, the first one lowest.
yms_u16_t yms_u16_build(std::uint16_t first, std::uint16_t second);

/// UUIDs of a base and an offset, and integers out of short byte strings.
class YMSCBUtils {
 public:
  YMSCBUtils() = delete;

  /// 36 lower-case characters.
  static std::string genCBUUIDWithOffset(const yms_u128_t& base, const yms_u128_t& offset);
  static platform::UUID createCBUUIDWithOffset(const yms_u128_t& base, const yms_u128_t& offset);
  static std::string genCBUUIDWithIntOffset(const yms_u128_t& base, std::int32_t offset);
  static platform::UUID createCBUUIDWithIntOffset(const yms_u128_t& base, std::int32_t offset);
  static std::string genCBUUIDWithIntBLEOffset(const yms_u128_t& base, std::int32_t offset);
  static platform::UUID createCBUUIDWithIntBLEOffset(const yms_u128_t& base, std::int32_t offset);

  /// The UUID of a bare short number. The number is written without padding, so that only numbers
  /// of exactly four or eight digits are UUIDs; any other gives the UUID of all zeros.
  static platform::UUID createCBUUIDWithShortNumber(std::int32_t number);

  /// Little-endian and signed; bytes that the data does not have read as 0.
  static std::int8_t dataToByte(platform::ByteView data);
  static std::int16_t dataToInt16(platform::ByteView data);
  static std::int32_t dataToInt32(platform::ByteView data);
};

}  // namespace wrixel2::bleobjects
