#include "protocol/BleObjects/YMSCBUtils.h"

#include <cstddef>

#include <fmt/format.h>

namespace wrixel2::bleobjects {
namespace {

/// A missing byte reads as 0.
std::uint32_t littleEndian(platform::ByteView data, std::size_t count) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < count && i < data.size(); ++i) {
    value |= static_cast<std::uint32_t>(data[i]) << (8 * i);
  }
  return value;
}

}  // namespace

std::uint64_t getfield64(std::uint64_t value, int startBit, int width) {
  return (value << (64 - startBit - width)) >> (64 - width);
}

yms_u128_t yms_u128_genAddress(const yms_u128_t& base, const yms_u128_t& offset) {
  return {base.hi | offset.hi, base.lo | offset.lo};
}

yms_u128_t yms_u128_genOffset(std::int32_t offset) {
  return {0, static_cast<std::uint64_t>(std::int64_t{offset})};
}

yms_u128_t yms_u128_genBLEOffset(std::int32_t offset) {
  return {static_cast<std::uint64_t>(static_cast<std::uint32_t>(offset)) << 32, 0};
}

yms_u16_t yms_u16_build(std::uint16_t first, std::uint16_t second) {
  return static_cast<yms_u16_t>((first & 0xFF) | (second & 0xFF) << 8);
}

std::string YMSCBUtils::genCBUUIDWithOffset(const yms_u128_t& base, const yms_u128_t& offset) {
  const auto address = yms_u128_genAddress(base, offset);
  return fmt::format("{:08x}-{:04x}-{:04x}-{:04x}-{:012x}", getfield64(address.hi, 32, 32),
                     getfield64(address.hi, 16, 16), getfield64(address.hi, 0, 16),
                     getfield64(address.lo, 48, 16), getfield64(address.lo, 0, 48));
}

platform::UUID YMSCBUtils::createCBUUIDWithOffset(const yms_u128_t& base,
                                                  const yms_u128_t& offset) {
  return platform::UUID::withString(genCBUUIDWithOffset(base, offset));
}

std::string YMSCBUtils::genCBUUIDWithIntOffset(const yms_u128_t& base, std::int32_t offset) {
  return genCBUUIDWithOffset(base, yms_u128_genOffset(offset));
}

platform::UUID YMSCBUtils::createCBUUIDWithIntOffset(const yms_u128_t& base, std::int32_t offset) {
  return platform::UUID::withString(genCBUUIDWithIntOffset(base, offset));
}

std::string YMSCBUtils::genCBUUIDWithIntBLEOffset(const yms_u128_t& base, std::int32_t offset) {
  return genCBUUIDWithOffset(base, yms_u128_genBLEOffset(offset));
}

platform::UUID YMSCBUtils::createCBUUIDWithIntBLEOffset(const yms_u128_t& base,
                                                        std::int32_t offset) {
  return platform::UUID::withString(genCBUUIDWithIntBLEOffset(base, offset));
}

platform::UUID YMSCBUtils::createCBUUIDWithShortNumber(std::int32_t number) {
  return platform::UUID::withString(fmt::format("{:x}", static_cast<std::uint32_t>(number)));
}

std::int8_t YMSCBUtils::dataToByte(platform::ByteView data) {
  return static_cast<std::int8_t>(littleEndian(data, 1));
}

std::int16_t YMSCBUtils::dataToInt16(platform::ByteView data) {
  return static_cast<std::int16_t>(littleEndian(data, 2));
}

std::int32_t YMSCBUtils::dataToInt32(platform::ByteView data) {
  return static_cast<std::int32_t>(littleEndian(data, 4));
}

}  // namespace wrixel2::bleobjects
