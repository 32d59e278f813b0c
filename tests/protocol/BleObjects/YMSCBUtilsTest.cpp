#include <gtest/gtest.h>

#include "protocol/BleObjects/YMSCBUtils.h"

namespace wrixel2::bleobjects {
namespace {

using platform::Bytes;

constexpr yms_u128_t kVendorBase = {0x0000000000003512, 0x21180009AF100700};
constexpr yms_u128_t kBluetoothBase = {0x0000000000001000, 0x800000805F9B34FB};

TEST(YMSCBUtilsTest, UUIDsAreBaseOrOffset) {
  using Utils = YMSCBUtils;
  const struct {
    const char* name;
    platform::UUID uuid;
    const char* expected;
  } kCases[] = {
      {"BLE offset in the first group", Utils::createCBUUIDWithIntBLEOffset(kVendorBase, 0xFF0E),
       "0000ff0e-0000-3512-2118-0009af100700"},
      {"wider than 16 bits", Utils::createCBUUIDWithIntBLEOffset(kBluetoothBase, 0x12345678),
       "12345678-0000-1000-8000-00805f9b34fb"},
      {"a negative BLE offset stays in its group", Utils::createCBUUIDWithIntBLEOffset({}, -1),
       "ffffffff-0000-0000-0000-000000000000"},
      {"int offset in the last group, or-ed not added",
       Utils::createCBUUIDWithIntOffset(kBluetoothBase, 5), "00000000-0000-1000-8000-00805f9b34ff"},
      {"a negative int offset fills the last two groups",
       Utils::createCBUUIDWithIntOffset(kBluetoothBase, -1),
       "00000000-0000-1000-ffff-ffffffffffff"},
      {"a whole offset", Utils::createCBUUIDWithOffset(kVendorBase, {0xF0, 0xF}),
       "00000000-0000-35f2-2118-0009af10070f"},
  };
  for (const auto& test : kCases) {
    EXPECT_EQ(test.uuid.longText(), test.expected) << test.name;
  }
}

TEST(YMSCBUtilsTest, ShortNumbersAreNotPadded) {
  EXPECT_EQ(YMSCBUtils::createCBUUIDWithShortNumber(0xFEE0).text(), "fee0");
  EXPECT_EQ(YMSCBUtils::createCBUUIDWithShortNumber(0x12345678).text(), "12345678");
  EXPECT_EQ(YMSCBUtils::createCBUUIDWithShortNumber(-2).text(), "fffffffe");
  EXPECT_EQ(YMSCBUtils::createCBUUIDWithShortNumber(0x5), platform::UUID());
  EXPECT_EQ(YMSCBUtils::createCBUUIDWithShortNumber(0x12345), platform::UUID());
}

TEST(YMSCBUtilsTest, FieldsAndBytes) {
  constexpr std::uint64_t kValue = 0x0123456789ABCDEF;
  EXPECT_EQ(getfield64(kValue, 0, 16), 0xCDEFU);
  EXPECT_EQ(getfield64(kValue, 32, 32), 0x01234567U);
  EXPECT_EQ(getfield64(kValue, 0, 48), 0x456789ABCDEFU);
  EXPECT_EQ(getfield64(kValue, 0, 64), kValue);
  EXPECT_EQ(yms_u16_build(0x1234, 0xABCD), 0xCD34);
}

TEST(YMSCBUtilsTest, IntegersAreSignedAndMissingBytesAreZero) {
  EXPECT_EQ(YMSCBUtils::dataToByte(Bytes{0x80}), -128);
  EXPECT_EQ(YMSCBUtils::dataToByte(Bytes{}), 0);
  EXPECT_EQ(YMSCBUtils::dataToInt16(Bytes{0xFE, 0xFF}), -2);
  EXPECT_EQ(YMSCBUtils::dataToInt16(Bytes{0xFF, 0x7F, 0xFF}), 32767);
  EXPECT_EQ(YMSCBUtils::dataToInt16(Bytes{0xFE}), 0xFE);
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{1, 2, 3, 4, 0x80}), 0x04030201);
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{0xFF, 0xFF, 0xFF, 0xFF}), -1);
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{0xFF, 0xFF, 0xFF}), 0xFFFFFF);
}

}  // namespace
}  // namespace wrixel2::bleobjects
