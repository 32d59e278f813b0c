#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "protocol/MBModel/MBDataBuilder.h"

namespace wrixel2::mbmodel {
namespace {

using platform::Bytes;
using platform::FixedTimeZone;
using platform::hexText;

constexpr std::size_t kHuge = std::numeric_limits<std::size_t>::max();

std::string written(const MBDataBuilder& builder) { return hexText(builder.data()); }

TEST(MBDataBuilderTest, IntegersAreLittleEndianAndAsLongAsAskedFor) {
  const struct {
    std::uint64_t value;
    std::size_t count;
    const char* bytes;
  } kCases[] = {{0x1234, 2, "3412"},
                {0x1234, 1, "34"},
                {0x1234, 0, ""},
                {0xFF01FA, 3, "fa01ff"},
                {0x0102030405060708, 8, "0807060504030201"},
                // More bytes than the number has are zeros.
                {0xFFFFFFFFFFFFFFFF, 10, "ffffffffffffffff0000"}};
  for (const auto& test : kCases) {
    MBDataBuilder builder;
    EXPECT_EQ(written(builder.writeInt(test.value, test.count)), test.bytes);
    EXPECT_EQ(builder.pos(), test.count);
  }
}

TEST(MBDataBuilderTest, StringsAreTrimmedAndCutByCharactersAndByBytes) {
  const struct {
    const char* name;
    const char* text;
    std::size_t count;
    const char* bytes;
  } kCases[] = {{"trimmed, rest of the field zero", "  Hi \n", 5, "4869000000"},
                {"other blanks are trimmed too", "\xC2\xA0\t Hi\xE3\x80\x80\r\n", 2, "4869"},
                {"blanks inside stay", "a b", 3, "612062"},
                {"cut at the count", "Hello", 3, "48656c"},
                {"nothing asked for", "Hello", 0, ""},
                {"only blanks", " \t\n", 2, "0000"},
                // Two characters of two bytes each: two bytes are copied, the rest is cut.
                {"multi-byte text is cut short", "\xC3\xA9\xC3\xA8", 4, "c3a90000"},
                // One character outside the basic plane is two UTF-16 units.
                {"two units outside the basic plane", "\xF0\x9F\x98\x80", 4, "f09f0000"},
                {"bytes that are no text count one each",
                 "\xFF\xFE"
                 "a",
                 3, "fffe61"}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    MBDataBuilder builder;
    EXPECT_EQ(written(builder.writeString(test.text, test.count)), test.bytes);
    EXPECT_EQ(builder.pos(), test.count);
  }
}

TEST(MBDataBuilderTest, DisplayTextGoesBehindTheIconWhereverTheCursorIs) {
  const Bytes letters(25, 'x');
  MBDataBuilder alert;
  alert.writeInt(0x0105, 2).writeDisplayText(letters, letters.size());
  EXPECT_EQ(alert.pos(), 20U);
  EXPECT_EQ(written(alert), "0501" + hexText(Bytes(18, 'x')));

  // Without the icon the text still begins at index 2, and the cursor counts only the text.
  MBDataBuilder fresh;
  EXPECT_EQ(written(fresh.writeDisplayText(Bytes{'a', 'b', 'c'}, 2)), "0000");
  EXPECT_EQ(written(fresh.writeInt(0, 2)), "00000000") << "written over the text";

  MBDataBuilder shorter;
  shorter.writeInt(0x0105, 2).writeDisplayText(Bytes{'a'}, 3);
  EXPECT_EQ(written(shorter), "0501610000") << "bytes that the text does not have are left alone";
}

TEST(MBDataBuilderTest, VersionsAreFourNumbersApartByBlanks) {
  const std::pair<const char*, const char*> kCases[] = {
      {"1 2 3 4", "04030201"},
      {"  1\t2\n3   4 5", "04030201"},
      // A dot is no blank: every later place fails and is 0.
      {"1.2.3.4", "00000001"},
      {"", "00000000"},
      {"x", "00000000"},
      {"1 2 x 4", "00000201"},
      // A number wider than its place spreads over those before it.
      {"+1 -1 0 0", "0000ffff"},
      {"1 -", "00000001"},
      // Held to 32 bits, so that the lowest byte is all that is left of it.
      {"99999999999", "000000ff"},
      {"0 0 0 -99999999999", "00000080"},
      {"0 0 0 3000000000", "ffffff7f"}};
  for (const auto& [text, bytes] : kCases) {
    EXPECT_EQ(written(MBDataBuilder().writeVersionString(text)), bytes) << text;
  }
}

TEST(MBDataBuilderTest, DatesCarryLocalTimeWeekdayAndQuarterHours) {
  using std::chrono::hours;
  // A Sunday, 04:05:06 UTC.
  const platform::Date date = std::chrono::sys_days(std::chrono::year(2026) / 3 / 1) + hours(4) +
                              std::chrono::minutes(5) + std::chrono::seconds(6);
  const struct {
    const char* name;
    int secondsFromGMT;
    const char* bytes;
  } kCases[] = {{"GMT", 0, "ea07030104050601000000"},
                {"five and a half hours east", 19800, "ea07030109230601000016"},
                {"three and a half hours west", -12600, "ea070301002306010000f2"},
                {"the day before, a Saturday", -18000, "ea07021c170506070000ec"},
                // Less than a quarter hour, and less than a minute, do not show.
                {"fourteen minutes west", -899, "ea07030103320701000000"},
                {"eighteen hours east", 64800, "ea07030116050601000048"}};
  for (const auto& test : kCases) {
    SCOPED_TRACE(test.name);
    MBDataBuilder builder;
    builder.writeDate(date, FixedTimeZone(test.secondsFromGMT));
    EXPECT_EQ(written(builder), test.bytes);
    EXPECT_EQ(builder.pos(), 11U);
  }

  EXPECT_EQ(written(MBDataBuilder().writeDate(std::nullopt, FixedTimeZone(0))), "ffffffffffff");
}

TEST(MBDataBuilderTest, TheChecksumIsTheCRCUnderTheLastByteOfTheAddress) {
  MBDataBuilder builder;
  builder.writeInt(0x01AA, 2).writeChecksumFromIndex(1, 1, 0x0C);
  EXPECT_EQ(written(builder), "aa0152");  // 5e ^ 0c
  EXPECT_EQ(written(MBDataBuilder().writeChecksumFromIndex(0, 0, 0x42)), "42");
}

TEST(MBDataBuilderTest, AVibrationPatternStartsOver) {
  MBDataBuilder builder;
  builder.writeInt(0xAABBCCDD, 4).writeVibrationPattern(75, 1500, 3);
  EXPECT_EQ(written(builder), "ff4b00dc0503");
  EXPECT_EQ(builder.pos(), 6U);
}

TEST(MBDataBuilderTest, WhatDoesNotFitIsDroppedWhileTheCursorMovesOn) {
  MBDataBuilder builder;
  builder.writeInt(0, 18).writeInt(0x44332211, 4);
  EXPECT_EQ(builder.pos(), 22U);
  EXPECT_EQ(written(builder), std::string(36, '0') + "1122");

  builder.writeString("far away", 8).writeDate(platform::Date(), FixedTimeZone(0));
  builder.writeChecksumFromIndex(19, kHuge, 0).writeChecksumFromIndex(kHuge, kHuge, 0);
  EXPECT_EQ(builder.data().size(), MBDataBuilder::kBufferSize);
  EXPECT_EQ(written(builder), std::string(36, '0') + "1122");

  builder.writeInt(1, kHuge - 100).writeString("Hello", kHuge);
  EXPECT_LE(builder.data().size(), MBDataBuilder::kBufferSize);
}

}  // namespace
}  // namespace wrixel2::mbmodel
