#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/Bytes.h"
#include "platform/Date.h"

namespace wrixel2::platform {
struct Platform;
}  // namespace wrixel2::platform

namespace wrixel2::mbmodel {

/// Walks a payload of the band with a cursor. Integers are little-endian unless an operation says
/// otherwise. Nothing fails: a byte that the payload does not have reads as 0.
class MBDataReader {
 public:
  MBDataReader() = default;
  explicit MBDataReader(platform::Bytes data) : data_(std::move(data)) {}

  std::uint64_t readInt(std::size_t bytesCount);
  /// Most significant byte first. Peeks: the cursor stays.
  std::uint64_t readIntReverse(std::size_t bytesCount) const;
  /// The signed 12-bit value in the low bits of two bytes.
  int readSensorData();
  /// The UTF-8 text of the bytes, without blanks and line breaks at its ends; none when they are
  /// not UTF-8. Ends with the payload. Peeks: the cursor stays.
  std::optional<std::string> readString(std::size_t bytesCount) const;
  /// "1.2.3.4" of the bytes 04 03 02 01.
  std::string readVersionString();
  /// "c8:0f:10:aa:bb:0c" of those six bytes.
  std::string readMACAddressString();

  /// Eight bytes. Deliberately in a zone as many seconds east of GMT as the cursor's value at the
  /// eighth byte, whatever that byte says; see the source. The local zone serves where that is
  /// none.
  platform::Date readDate(const platform::TimeZone& localTimeZone);
  /// The band's 11-byte time, in the local zone. A payload of any other length is an error line and
  /// gives the present time.
  platform::Date readTimeDate(const platform::Platform& platform);

  const platform::Bytes& data() const { return data_; }
  std::size_t length() const { return data_.size(); }
  std::size_t pos() const { return pos_; }
  /// Negative where the cursor is past the end.
  std::ptrdiff_t bytesLeftCount() const;
  /// Moves the cursor anywhere, also past the end.
  MBDataReader& rePos(std::size_t index);

 private:
  std::uint8_t at(std::size_t index) const { return index < data_.size() ? data_[index] : 0; }
  platform::DateComponents readDateComponents();

  platform::Bytes data_;
  std::size_t pos_ = 0;
};

}  // namespace wrixel2::mbmodel
