#include "protocol/MBModel/MBDataBuilder.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <limits>

#include "protocol/MBModel/MBHelper.h"
#include "protocol/MBModel/Text.h"

namespace wrixel2::mbmodel {
namespace {

constexpr std::size_t kDisplayTextIndex = 2;
constexpr std::size_t kDisplayTextLimit = MBDataBuilder::kBufferSize - kDisplayTextIndex;
constexpr std::size_t kBytesOfInt = sizeof(std::uint64_t);

/// Takes the next number from the front of the text, after blanks. 0 without moving on where there
/// is none; numbers outside 32 bits are held to the range.
std::int32_t scanInt(std::string_view& text) {
  const std::size_t start = text.find_first_not_of(" \t\r\n");
  if (start == std::string_view::npos) {
    return 0;
  }
  const bool isNegative = text[start] == '-';
  const char* digits = text.data() + start + (isNegative || text[start] == '+' ? 1 : 0);
  const char* const end = text.data() + text.size();
  std::uint32_t magnitude = 0;
  const auto result = std::from_chars(digits, end, magnitude);
  if (result.ec == std::errc::invalid_argument) {
    return 0;
  }
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));

  constexpr auto kLargest = std::numeric_limits<std::int32_t>::max();
  if (result.ec == std::errc::result_out_of_range ||
      magnitude > static_cast<std::uint32_t>(kLargest)) {
    return isNegative ? std::numeric_limits<std::int32_t>::min() : kLargest;
  }
  const auto value = static_cast<std::int32_t>(magnitude);
  return isNegative ? -value : value;
}

/// Quarter hours from GMT, signed: whole minutes first, so that odd seconds of a zone do not count.
std::int32_t quarterHours(std::int32_t secondsFromGMT) {
  const std::int32_t minutes = secondsFromGMT / 60;
  const std::int32_t magnitude = std::abs(minutes);
  const std::int32_t quarters = (magnitude / 60) * 4 + (magnitude % 60) / 15;
  return minutes < 0 ? -quarters : quarters;
}

}  // namespace

// Every payload of the band fits, so a write past the buffer is a mistake of the caller. It is
// still not let loose on the memory behind the buffer: the byte is dropped, and the cursor moves on
// as if it had been written, so that nothing that follows lands in a wrong place.
void MBDataBuilder::put(std::size_t index, std::uint8_t byte) {
  if (index < bytes_.size()) {
    bytes_[index] = byte;
  }
}

MBDataBuilder& MBDataBuilder::writeInt(std::uint64_t value, std::size_t bytesCount) {
  for (std::size_t i = 0; i < std::min(bytesCount, kBufferSize); ++i) {
    put(pos_ + i, i < kBytesOfInt ? static_cast<std::uint8_t>(value >> (8 * i)) : 0);
  }
  pos_ += bytesCount;
  return *this;
}

MBDataBuilder& MBDataBuilder::writeString(std::string_view text, std::size_t bytesCount) {
  const std::string_view content = trimmed(text);
  // Deliberately as many bytes as the text has characters: text beyond ASCII is cut short, which
  // keeps a field of n characters at n bytes whatever the language.
  const std::size_t copied = std::min({utf16Length(content), bytesCount, content.size()});
  for (std::size_t i = 0; i < copied; ++i) {
    put(pos_ + i, static_cast<std::uint8_t>(content[i]));
  }
  pos_ += bytesCount;
  return *this;
}

MBDataBuilder& MBDataBuilder::writeDisplayText(platform::ByteView text, std::size_t bytesCount) {
  const std::size_t count = std::min(bytesCount, kDisplayTextLimit);
  for (std::size_t i = 0; i < std::min(count, text.size()); ++i) {
    put(kDisplayTextIndex + i, text[i]);
  }
  pos_ += count;
  return *this;
}

MBDataBuilder& MBDataBuilder::writeVibrationPattern(std::uint16_t duration,
                                                    std::uint16_t stopDuration,
                                                    std::uint8_t count) {
  pos_ = 0;
  return writeInt(0xFF, 1).writeInt(duration, 2).writeInt(stopDuration, 2).writeInt(count, 1);
}

MBDataBuilder& MBDataBuilder::writeVersionString(std::string_view text) {
  std::uint32_t version = 0;
  for (int place = 0; place < 4; ++place) {
    // Overlapping numbers merge: first << 24 | second << 16 | third << 8 | fourth.
    version |= static_cast<std::uint32_t>(scanInt(text)) << (8 * (3 - place));
  }
  return writeInt(version, 4);
}

MBDataBuilder& MBDataBuilder::writeDate(const std::optional<platform::Date>& date,
                                        const platform::TimeZone& localTimeZone) {
  if (!date) {
    return writeInt(0xFFFFFFFFFFFF, 6);
  }
  const auto components = platform::componentsFromDate(*date, localTimeZone);
  for (const int field :
       {components.year & 0xFF, components.year >> 8, components.month, components.day,
        components.hour, components.minute, components.second, components.weekday, 0, 0,
        quarterHours(localTimeZone.secondsFromGMT(*date))}) {
    writeInt(static_cast<std::uint64_t>(field), 1);
  }
  return *this;
}

MBDataBuilder& MBDataBuilder::writeChecksumFromIndex(std::size_t start, std::size_t length,
                                                     std::uint8_t lastMACByte) {
  const std::size_t first = std::min(start, bytes_.size());
  const auto part =
      platform::ByteView(bytes_).subspan(first, std::min(length, bytes_.size() - first));
  return writeInt(MBHelper::CRC8WithBytes(part) ^ lastMACByte, 1);
}

platform::Bytes MBDataBuilder::data() const {
  const auto end = static_cast<std::ptrdiff_t>(std::min(pos_, bytes_.size()));
  return {bytes_.begin(), bytes_.begin() + end};
}

}  // namespace wrixel2::mbmodel
