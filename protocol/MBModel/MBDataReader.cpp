#include "protocol/MBModel/MBDataReader.h"

#include <algorithm>
#include <string_view>

#include <fmt/format.h>

#include "platform/Platform.h"
#include "platform/Utf8.h"
#include "protocol/MBModel/Text.h"

namespace wrixel2::mbmodel {
namespace {

constexpr std::size_t kBytesOfInt = sizeof(std::uint64_t);
constexpr std::size_t kTimeDateLength = 11;

/// What the components mean in the zone of that many seconds, or in the local one where there is no
/// such zone.
platform::Date dateInZone(const platform::DateComponents& components, std::int64_t secondsFromGMT,
                          const platform::TimeZone& localTimeZone) {
  if (!platform::FixedTimeZone::isValidOffset(secondsFromGMT)) {
    return platform::dateFromComponents(components, localTimeZone);
  }
  return platform::dateFromComponents(components,
                                      platform::FixedTimeZone(static_cast<int>(secondsFromGMT)));
}

/// The band's quarter hours as milliseconds. -128 is its mark for an unknown zone. The cursor may
/// have been put anywhere, so the arithmetic is unsigned, where too large a number wraps.
std::int64_t zoneOffset(std::int64_t quarterHours) {
  if (quarterHours == -128) {
    return 28800000;
  }
  const bool isNegative = quarterHours < 0;
  const auto bits = static_cast<std::uint64_t>(quarterHours);
  const std::uint64_t magnitude = isNegative ? 0 - bits : bits;
  const std::uint64_t offset = ((magnitude % 4) * 15 + (magnitude / 4) * 60) * 60000;
  return static_cast<std::int64_t>(isNegative ? 0 - offset : offset);
}

}  // namespace

std::uint64_t MBDataReader::readInt(std::size_t bytesCount) {
  std::uint64_t value = 0;
  for (std::size_t i = 0; i < std::min(bytesCount, kBytesOfInt); ++i) {
    value |= static_cast<std::uint64_t>(at(pos_ + i)) << (8 * i);
  }
  pos_ += bytesCount;
  return value;
}

std::uint64_t MBDataReader::readIntReverse(std::size_t bytesCount) const {
  std::uint64_t value = 0;
  const std::size_t first = bytesCount - std::min(bytesCount, kBytesOfInt);
  for (std::size_t i = first; i < bytesCount; ++i) {
    value = value << 8 | at(pos_ + i);
  }
  return value;
}

int MBDataReader::readSensorData() {
  const int value = static_cast<int>(readInt(2)) & 0xFFF;
  return (value & 0x800) != 0 ? value - 0x1000 : value;
}

std::optional<std::string> MBDataReader::readString(std::size_t bytesCount) const {
  const std::size_t begin = std::min(pos_, data_.size());
  const std::size_t count = std::min(bytesCount, data_.size() - begin);
  const std::string text(data_.begin() + static_cast<std::ptrdiff_t>(begin),
                         data_.begin() + static_cast<std::ptrdiff_t>(begin + count));
  if (!platform::isUtf8(text)) {
    return std::nullopt;
  }
  return std::string(trimmed(text));
}

std::string MBDataReader::readVersionString() {
  const auto version = readInt(4);
  return fmt::format("{}.{}.{}.{}", version >> 24 & 0xFF, version >> 16 & 0xFF, version >> 8 & 0xFF,
                     version & 0xFF);
}

std::string MBDataReader::readMACAddressString() {
  std::string text;
  for (int i = 0; i < 6; ++i) {
    text += fmt::format("{}{:02x}", i == 0 ? "" : ":", readInt(1));
  }
  return text;
}

platform::DateComponents MBDataReader::readDateComponents() {
  platform::DateComponents components;
  components.year = static_cast<int>(readInt(2));
  for (int* field : {&components.month, &components.day, &components.hour, &components.minute,
                     &components.second}) {
    *field = static_cast<int>(readInt(1));
  }
  return components;
}

platform::Date MBDataReader::readDate(const platform::TimeZone& localTimeZone) {
  const auto components = readDateComponents();
  // The zone is deliberately made from the cursor, not from the byte under it: the charging dates
  // have always been read this way, and dates that are compared must be read alike.
  const auto zone = static_cast<std::int64_t>(pos_);
  readInt(1);
  return dateInZone(components, zone, localTimeZone);
}

platform::Date MBDataReader::readTimeDate(const platform::Platform& platform) {
  if (length() != kTimeDateLength) {
    platform::Logger(platform.log, "MBDataReader")
        .error(fmt::format("Wrong date format! Len {}", length()));
    return platform.clock.now();
  }
  auto components = readDateComponents();
  components.weekday = static_cast<int>(readInt(1));
  readInt(2);
  // Deliberately the cursor again, and milliseconds where seconds are meant: no zone lies that far
  // from GMT, so the band's clock always reads as local time, which is how it is set.
  const auto zone = static_cast<std::int64_t>(pos_);
  readInt(1);
  return dateInZone(components, zoneOffset(zone), platform.localTimeZone);
}

std::ptrdiff_t MBDataReader::bytesLeftCount() const {
  return static_cast<std::ptrdiff_t>(data_.size() - pos_);
}

MBDataReader& MBDataReader::rePos(std::size_t index) {
  pos_ = index;
  return *this;
}

}  // namespace wrixel2::mbmodel
