#include <numeric>
#include <string>

#include <gtest/gtest.h>

#include "platform/simulated/RecordingLog.h"
#include "protocol/MBModel/MBActivityModel.h"
#include "protocol/MBModel/MBBatteryInfoModel.h"
#include "protocol/MBModel/MBDeviceInfoModel.h"
#include "protocol/MBModel/MBLEParamsModel.h"
#include "protocol/MBModel/MBVibrateModel.h"

namespace wrixel2::mbmodel {
namespace {

using platform::Bytes;
using platform::FixedTimeZone;
using platform::hexText;

const Bytes kBattery = {0x0F, 57,   1,                             // level, status
                        0xEA, 0x07, 2, 27, 22, 15, 30, 0x04,       // last charge
                        0xEA, 0x07, 1, 31, 23, 59, 59, 0x04, 99};  // last full charge, last level

TEST(MBBatteryInfoModelTest, ReadsTwentyBytesAndOfFewerNothing) {
  const MBBatteryInfoModel record(kBattery, FixedTimeZone(7200));
  EXPECT_EQ(record.description(),
            "level = 57%, status = 1, lastCharge = 2026-02-27 22:15:20 +0000, "
            "lastFullCharge = 2026-01-31 23:59:41 +0000, lastLevel = 99");

  Bytes other = kBattery;
  other.push_back(0xFF);
  EXPECT_EQ(MBBatteryInfoModel(other, FixedTimeZone(0)).description(), record.description());
  other.resize(19);
  EXPECT_EQ(MBBatteryInfoModel(other, FixedTimeZone(0)).description(),
            "level = 0%, status = 0, lastCharge = (null), lastFullCharge = (null), lastLevel = 0");
}

TEST(MBActivityModelTest, ReadsThirteenBytes) {
  const Bytes payload = {0x0C, 0x10, 0x27, 0, 0, 0x64, 0, 0, 0, 0x2A, 0, 0, 0x80};
  const MBActivityModel record(payload);
  EXPECT_EQ(record.description(), "steps = 10000, distance = 100m, calories = 2147483690");
  EXPECT_EQ(MBActivityModel(Bytes(payload.begin(), payload.end() - 1)).description(),
            "steps = 0, distance = 0m, calories = 0");
}

TEST(MBDeviceInfoModelTest, TheSingleBytesLieInsideTheIdentifier) {
  Bytes payload(16);
  std::iota(payload.begin(), payload.end(), std::uint8_t{1});
  const MBDeviceInfoModel record(payload);
  EXPECT_EQ(record.description(),
            "deviceID = 0102030405060708, profileVersion = 12.11.10.9, firmwareVersion = "
            "16.15.14.13, feature = 5, appearence = 6, hardwareVersion = 7");
}

TEST(MBDeviceInfoModelTest, EncodingIsNotTheInverseOfReading) {
  MBDeviceInfoModel record(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 4, 3, 2, 1, 8, 7, 6, 5});
  // The first characters of the identifier, and of each version only what stands before a dot.
  EXPECT_EQ(hexText(record.data()), hexText(platform::bytesOfText("01020304")) +
                                        "00000001"
                                        "00000005");
  record.setProfileVersion("1 2 3 4");
  record.setDeviceID("ab");
  EXPECT_EQ(hexText(record.data()),
            "6162000000000000"
            "04030201"
            "00000005");

  const MBDeviceInfoModel none;
  EXPECT_EQ(hexText(none.data()), std::string(32, '0'));
  EXPECT_EQ(none.description(),
            "deviceID = (null), profileVersion = (null), firmwareVersion = (null), feature = 0, "
            "appearence = 0, hardwareVersion = 0");
  // Whatever is missing of a payload reads as zero.
  EXPECT_EQ(MBDeviceInfoModel(Bytes{0xAB}).deviceID(), "ab00000000000000");
}

TEST(MBLEParamsModelTest, FourFieldsBothWays) {
  const Bytes payload = {0x18, 0x00, 0x28, 0x00, 0x00, 0x00, 0xF4, 0x01};
  const MBLEParamsModel record(payload);
  EXPECT_EQ(record.description(),
            "connIntMin = 30(24) ms, connIntMax = 50(40) ms, latency = 0 ms, "
            "timeout = 5000(500) ms");
  EXPECT_EQ(record.data(), payload);

  // 1.25 ms a unit, without the fraction.
  MBLEParamsModel odd;
  odd.setConnIntMin(39);
  odd.setConnIntMax(0x1FFFF);
  odd.setLatency(3);
  EXPECT_EQ(odd.description(),
            "connIntMin = 48(39) ms, connIntMax = 163838(131071) ms, latency = 3 ms, "
            "timeout = 0(0) ms");
  EXPECT_EQ(hexText(odd.data()), "2700ffff03000000");
}

TEST(MBVibrateModelTest, TheTextIsPrivateInTheLogAndAnUnknownIconTheFirst) {
  EXPECT_EQ(MBVibrateModel::getIconFromId(~std::uint64_t{0}), 1U);
  platform::simulated::RecordingLog log;
  const MBVibrateModel alert(3, 9, 4, "See you at six");
  EXPECT_EQ(alert.description(log), "Repeat 3 Icon 9 Pattern 4 Text: <private>");
  log.setShowsPrivate(true);
  EXPECT_EQ(alert.description(log), "Repeat 3 Icon 9 Pattern 4 Text: See you at six");
  EXPECT_EQ(MBVibrateModel(1, 0, 0, std::nullopt).description(log),
            "Repeat 1 Icon 0 Pattern 0 Text: (null)");
}

}  // namespace
}  // namespace wrixel2::mbmodel
