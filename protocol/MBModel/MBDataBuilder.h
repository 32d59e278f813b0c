#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/Date.h"

namespace wrixel2::mbmodel {

/// Builds one payload for the band, front to back, in a scratch buffer of 20 bytes: what fits into
/// one write on a link with the default MTU (Core Specification Vol 3, Part F, 3.4.5: MTU 23, less
/// the three bytes of the request).
///
/// Integers are little-endian. Nothing is checked and nothing fails; a byte past the buffer is
/// dropped while the cursor moves on.
class MBDataBuilder {
 public:
  static constexpr std::size_t kBufferSize = 20;

  /// The value's low bytes, as many as asked for.
  MBDataBuilder& writeInt(std::uint64_t value, std::size_t bytesCount);

  /// The trimmed text in UTF-8, cut at bytesCount bytes and also at as many bytes as the text has
  /// UTF-16 code units. The cursor advances by bytesCount whatever was copied.
  MBDataBuilder& writeString(std::string_view text, std::size_t bytesCount);

  /// At most 18 bytes of text to index 2, behind the two bytes of an alert's icon that are there
  /// already. The cursor advances by the count, at most 18, wherever it stood.
  MBDataBuilder& writeDisplayText(platform::ByteView text, std::size_t bytesCount);

  /// Starts over with a vibration pattern of 6 bytes: FF, the two durations in milliseconds, the
  /// count.
  MBDataBuilder& writeVibrationPattern(std::uint16_t duration, std::uint16_t stopDuration,
                                       std::uint8_t count);

  /// Four numbers separated by blanks, the first into the last of 4 bytes. A place without a number
  /// is 0; a dot is not a blank, so that "1.2.3.4" is 1 and three zeros.
  MBDataBuilder& writeVersionString(std::string_view text);

  /// The band's 11-byte time of the moment in the local zone, or 6 bytes FF when there is no date.
  MBDataBuilder& writeDate(const std::optional<platform::Date>& date,
                           const platform::TimeZone& localTimeZone);

  /// One byte: the CRC-8 of that part of the buffer, exclusive-or'ed with the last byte of the
  /// band's MAC address.
  MBDataBuilder& writeChecksumFromIndex(std::size_t start, std::size_t length,
                                        std::uint8_t lastMACByte);

  std::size_t pos() const { return pos_; }
  /// What was written so far, up to the cursor; never more than the buffer.
  platform::Bytes data() const;

 private:
  void put(std::size_t index, std::uint8_t byte);

  std::array<std::uint8_t, kBufferSize> bytes_{};
  std::size_t pos_ = 0;
};

}  // namespace wrixel2::mbmodel
