#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "protocol/MBModel/MBHelper.h"

namespace wrixel2::mbmodel {
namespace {

using platform::Bytes;

TEST(MBHelperTest, CRCIsTheOneWireOne) {
  EXPECT_EQ(MBHelper::CRC8WithBytes({}), 0);
  EXPECT_EQ(MBHelper::CRC8WithBytes(Bytes{0x01}), 0x5E);
  // The check value that the algorithm is published with: the digits 1 to 9.
  EXPECT_EQ(MBHelper::CRC8WithBytes(platform::bytesOfText("123456789")), 0xA1);
}

TEST(MBHelperTest, HexadecimalBothWays) {
  EXPECT_EQ(MBHelper::byte2HexString(0x0F), "0f");
  EXPECT_EQ(MBHelper::byte2HexString(0xAB), "ab");

  const std::pair<const char*, std::uint32_t> kCases[] = {
      {"1f", 0x1F},      {" 0xFFee", 0xFFEE},
      {"0X10 ", 0x10},   {"12g", 0x12},
      {"", 0},           {"g", 0},
      {"-1", 0},         {"0x", 0},
      {"ffffffff", ~0U}, {"100000000", 0xFFFFFFFF}};
  for (const auto& [text, value] : kCases) {
    EXPECT_EQ(MBHelper::hexString2Int(text), value) << text;
  }
}

TEST(MBHelperTest, CountersRunTheirActionOnceAtTheTarget) {
  for (const auto make : {&MBHelper::counter, &MBHelper::serviceCounter}) {
    int runs = 0;
    const auto counter = make(3, [&runs] { ++runs; });
    const auto copy = counter;
    counter();
    copy();
    EXPECT_EQ(runs, 0);
    counter();
    EXPECT_EQ(runs, 1) << "copies share the count";
    for (int i = 0; i < 5; ++i) {
      copy();
    }
    EXPECT_EQ(runs, 1);
  }

  int runs = 0;
  const auto never = MBHelper::counter(0, [&runs] { ++runs; });
  never();
  never();
  EXPECT_EQ(runs, 0);
}

TEST(MBHelperTest, ACounterLetsGoOfItsActionAndMayBeCalledFromIt) {
  auto held = std::make_shared<int>(0);
  MBHelper::Counter counter;
  counter = MBHelper::counter(1, [held, &counter] {
    ++*held;
    counter();
    counter = nullptr;  // the closure that is running
  });
  const auto copy = counter;
  counter();
  EXPECT_EQ(*held, 1);
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace wrixel2::mbmodel
