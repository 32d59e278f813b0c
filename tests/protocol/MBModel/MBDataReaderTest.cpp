#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedPlatform.h"
#include "protocol/MBModel/MBDataBuilder.h"
#include "protocol/MBModel/MBDataReader.h"

namespace wrixel2::mbmodel {
namespace {

using platform::Bytes;
using platform::FixedTimeZone;
using platform::LogLevel;

constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();

TEST(MBDataReaderTest, IntegersMoveTheCursorAndReversedOnesPeek) {
  MBDataReader reader(Bytes{0x12, 0x34, 0x56});
  EXPECT_EQ(reader.readIntReverse(2), 0x1234U);
  EXPECT_EQ(reader.pos(), 0U);
  EXPECT_EQ(reader.readInt(2), 0x3412U);
  EXPECT_EQ(reader.pos(), 2U);
  EXPECT_EQ(reader.bytesLeftCount(), 1);
  EXPECT_EQ(reader.readInt(0), 0U);
  EXPECT_EQ(reader.readIntReverse(0), 0U);
  EXPECT_EQ(reader.rePos(1).readInt(2), 0x5634U);
}

TEST(MBDataReaderTest, BytesBeyondTheEndReadAsZero) {
  MBDataReader reader(Bytes{0x11, 0x22});
  EXPECT_EQ(reader.readInt(4), 0x2211U);
  EXPECT_EQ(reader.bytesLeftCount(), -2);
  EXPECT_EQ(reader.readInt(1), 0U);
  EXPECT_EQ(reader.rePos(1).readIntReverse(2), 0x2200U);
  EXPECT_EQ(reader.readString(5), "\x22");
  EXPECT_EQ(reader.readMACAddressString(), "22:00:00:00:00:00");

  for (const std::size_t cursor : {std::size_t{2}, kHuge / 2, kHuge - 3}) {
    reader.rePos(cursor);
    EXPECT_EQ(reader.readString(kHuge), "");
    EXPECT_EQ(reader.readSensorData(), 0);
  }
  MBDataReader empty;
  EXPECT_EQ(empty.length(), 0U);
  EXPECT_EQ(empty.readInt(kHuge), 0U);
}

TEST(MBDataReaderTest, AWideNumberKeepsItsLowestEightBytes) {
  MBDataReader reader(Bytes{1, 2, 3, 4, 5, 6, 7, 8, 9});
  EXPECT_EQ(reader.readIntReverse(9), 0x0203040506070809U);
  EXPECT_EQ(reader.readInt(9), 0x0807060504030201U);
  EXPECT_EQ(reader.pos(), 9U);
}

TEST(MBDataReaderTest, SensorValuesHaveTwelveSignedBits) {
  const std::pair<Bytes, int> kCases[] = {
      {{0xFF, 0x0F}, -1}, {{0x00, 0x08}, -2048}, {{0xFF, 0x07}, 2047}, {{0xFF, 0xF7}, 2047}};
  for (const auto& [data, value] : kCases) {
    MBDataReader reader(data);
    EXPECT_EQ(reader.readSensorData(), value);
    EXPECT_EQ(reader.pos(), 2U);
  }
}

TEST(MBDataReaderTest, StringsAreTrimmedAndPeek) {
  const struct {
    const char* name;
    std::string bytes;
    std::size_t count;
    std::optional<std::string> text;
  } kCases[] = {
      {"trimmed", " \n Hi there\t\r ", 13, "Hi there"},
      {"part", "Hello", 2, "He"},
      {"unicode blanks", "\xE2\x80\xA8Hi\xC2\x85", 7, "Hi"},
      {"only blanks", "  ", 2, ""},
      {"four-byte character", "\xF0\x9F\x98\x80", 4, "\xF0\x9F\x98\x80"},
      {"a character cut in two", "\xC3\xA9", 1, std::nullopt},
      {"stray continuation", "a\x80", 2, std::nullopt},
      {"overlong", "\xC0\xAF", 2, std::nullopt},
      {"surrogate", "\xED\xA0\x80", 3, std::nullopt},
      {"beyond the last character", "\xF4\x90\x80\x80", 4, std::nullopt},
  };
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    const MBDataReader reader(Bytes(test.bytes.begin(), test.bytes.end()));
    EXPECT_EQ(reader.readString(test.count), test.text);
    EXPECT_EQ(reader.pos(), 0U);
  }
}

TEST(MBDataReaderTest, VersionsAndAddressesAreTexts) {
  MBDataReader version(Bytes{0x04, 0x03, 0x02, 0x01});
  EXPECT_EQ(version.readVersionString(), "1.2.3.4");
  EXPECT_EQ(version.pos(), 4U);
  MBDataReader address(Bytes{0xC8, 0x0F, 0x10, 0xAA, 0xBB, 0x0C});
  EXPECT_EQ(address.readMACAddressString(), "c8:0f:10:aa:bb:0c");
  EXPECT_EQ(address.pos(), 6U);
}

// 2026-03-01 04:05:06, and an eighth byte that plays no part.
const Bytes kDateBytes = {0xEA, 0x07, 3, 1, 4, 5, 6, 0x55};

TEST(MBDataReaderTest, DatesAreAsFarFromGMTAsTheirLastByteIsFromTheStart) {
  const FixedTimeZone local(3600);
  MBDataReader first(kDateBytes);
  EXPECT_EQ(platform::description(first.readDate(local)), "2026-03-01 04:04:59 +0000");
  EXPECT_EQ(first.pos(), 8U);

  Bytes later(3, 0);
  later.insert(later.end(), kDateBytes.begin(), kDateBytes.end());
  MBDataReader second(later);
  EXPECT_EQ(platform::description(second.rePos(3).readDate(local)), "2026-03-01 04:04:56 +0000");
}

TEST(MBDataReaderTest, DatesBeyondEighteenHoursAreLocal) {
  // A zone 18 hours from GMT exists and one a second further does not. All bytes are zero there, so
  // the components are year 0, month 0 and day 0, and only the zone differs.
  const FixedTimeZone local(3600);
  MBDataReader reader;
  const auto last = reader.rePos(64800 - 7).readDate(local);
  const auto beyond = reader.rePos(64801 - 7).readDate(local);
  EXPECT_EQ(beyond - last, std::chrono::hours(17));
}

TEST(MBDataReaderTest, TheBandsTimeIsLocalWhateverItsZoneByteSays) {
  platform::simulated::SimulatedPlatform phone;
  phone.timeZone.setSecondsFromGMT(-7200);
  for (const std::uint8_t zone : {0x00, 0x04, 0x80, 0xF4}) {
    MBDataReader reader(Bytes{0xEA, 0x07, 3, 1, 4, 5, 6, 1, 0, 0, zone});
    EXPECT_EQ(platform::description(reader.readTimeDate(phone.handle())),
              "2026-03-01 06:05:06 +0000");
    EXPECT_EQ(reader.pos(), 11U);
  }
  // What is written is read back as the same moment.
  const auto date = phone.clock.now();
  MBDataReader reader(MBDataBuilder().writeDate(date, phone.timeZone).data());
  EXPECT_EQ(reader.readTimeDate(phone.handle()), date);
  EXPECT_TRUE(phone.log.lines().empty());
}

TEST(MBDataReaderTest, ATimeOfAnotherLengthIsAnErrorLineAndThePresentTime) {
  platform::simulated::SimulatedPlatform phone;
  for (const std::size_t length : {0U, 10U, 12U}) {
    phone.log.clear();
    MBDataReader reader{Bytes(length)};
    EXPECT_EQ(reader.readTimeDate(phone.handle()), phone.clock.now());
    EXPECT_EQ(phone.log.messages(LogLevel::error),
              std::vector<std::string>{"Wrong date format! Len " + std::to_string(length)});
    EXPECT_EQ(reader.pos(), 0U);
  }
}

TEST(MBDataReaderTest, ATimeReadFromAnyCursorIsOnlyWrong) {
  platform::simulated::SimulatedPlatform phone;
  MBDataReader reader{Bytes(11)};
  // The last one puts the cursor on the number that marks an unknown zone.
  for (const std::size_t cursor : {std::size_t{1}, kHuge / 2, kHuge - 9, kHuge - 137}) {
    reader.rePos(cursor).readTimeDate(phone.handle());
    EXPECT_EQ(reader.pos(), cursor + 11);
  }
}

}  // namespace
}  // namespace wrixel2::mbmodel
