#include <gtest/gtest.h>

#include "protocol/BleObjects/FifoQueue.h"
#include "protocol/BleObjects/YMSCBUtils.h"

namespace wrixel2::bleobjects {
namespace {

using platform::Bytes;

constexpr yms_u128_t kVendorBase = {0x0000000000003512, 0x21180009AF100700};
constexpr yms_u128_t kBluetoothBase = {0x0000000000001000, 0x800000805F9B34FB};
constexpr yms_u128_t kNoBase = {};

TEST(YMSCBUtilsTest, UUIDsAreBaseOrOffset) {
  const struct {
    const char* name;
    std::string text;
    platform::UUID uuid;
    const char* expected;
  } kCases[] = {
      {"BLE offset in the first group", YMSCBUtils::genCBUUIDWithIntBLEOffset(kVendorBase, 0xFF0E),
       YMSCBUtils::createCBUUIDWithIntBLEOffset(kVendorBase, 0xFF0E),
       "0000ff0e-0000-3512-2118-0009af100700"},
      {"on the standard base", YMSCBUtils::genCBUUIDWithIntBLEOffset(kBluetoothBase, 0x2A37),
       YMSCBUtils::createCBUUIDWithIntBLEOffset(kBluetoothBase, 0x2A37),
       "00002a37-0000-1000-8000-00805f9b34fb"},
      {"wider than 16 bits", YMSCBUtils::genCBUUIDWithIntBLEOffset(kBluetoothBase, 0x12345678),
       YMSCBUtils::createCBUUIDWithIntBLEOffset(kBluetoothBase, 0x12345678),
       "12345678-0000-1000-8000-00805f9b34fb"},
      {"a negative BLE offset stays in its group",
       YMSCBUtils::genCBUUIDWithIntBLEOffset(kNoBase, -1),
       YMSCBUtils::createCBUUIDWithIntBLEOffset(kNoBase, -1),
       "ffffffff-0000-0000-0000-000000000000"},
      {"int offset in the last group, or-ed not added",
       YMSCBUtils::genCBUUIDWithIntOffset(kBluetoothBase, 5),
       YMSCBUtils::createCBUUIDWithIntOffset(kBluetoothBase, 5),
       "00000000-0000-1000-8000-00805f9b34ff"},
      {"a negative int offset fills the last two groups",
       YMSCBUtils::genCBUUIDWithIntOffset(kBluetoothBase, -1),
       YMSCBUtils::createCBUUIDWithIntOffset(kBluetoothBase, -1),
       "00000000-0000-1000-ffff-ffffffffffff"},
      {"a whole offset", YMSCBUtils::genCBUUIDWithOffset(kVendorBase, {0xF0, 0xF}),
       YMSCBUtils::createCBUUIDWithOffset(kVendorBase, {0xF0, 0xF}),
       "00000000-0000-35f2-2118-0009af10070f"},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    EXPECT_EQ(test.text, test.expected);
    EXPECT_EQ(test.uuid.longText(), test.expected);
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
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{1, 2, 3, 4}), 0x04030201);
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{0xFF, 0xFF, 0xFF, 0xFF}), -1);
  EXPECT_EQ(YMSCBUtils::dataToInt32(Bytes{0xFF, 0xFF, 0xFF}), 0xFFFFFF);
}

TEST(FifoQueueTest, TheOldestLeavesFirst) {
  FifoQueue<int> queue;
  EXPECT_EQ(queue.pop(), std::nullopt);
  queue.push(1);
  queue.push(2);
  EXPECT_EQ(queue.pop(), 1);
  queue.push(3);
  EXPECT_EQ(queue.count(), 2U);
  EXPECT_EQ(queue.pop(), 2);
  EXPECT_EQ(queue.pop(), 3);
  EXPECT_TRUE(queue.isEmpty());
}

}  // namespace
}  // namespace wrixel2::bleobjects
