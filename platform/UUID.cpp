#include "platform/UUID.h"

#include <algorithm>

#include <nettle/sha1.h>

#include "platform/Bytes.h"

namespace wrixel2::platform {
namespace {

constexpr std::array<std::uint8_t, 16> kBluetoothBase = {
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x10, 0x00, 0x80, 0x00, 0x00, 0x80, 0x5f, 0x9b, 0x34, 0xfb};
constexpr std::size_t kLongLength = 36;

constexpr bool isHyphenPlace(std::size_t index) {
  return index == 8 || index == 13 || index == 18 || index == 23;
}

/// The text's digits as bytes from the given place on; false for anything but pairs of digits.
bool readDigits(std::string_view digits, std::array<std::uint8_t, 16>& bytes, std::size_t place) {
  for (std::size_t index = 0; index + 1 < digits.size(); index += 2) {
    const auto high = hexDigitValue(digits[index]);
    const auto low = hexDigitValue(digits[index + 1]);
    if (!high || !low) {
      return false;
    }
    bytes[place++] = static_cast<std::uint8_t>(*high << 4 | *low);
  }
  return true;
}

}  // namespace

std::optional<UUID> UUID::fromText(std::string_view text) {
  auto bytes = kBluetoothBase;
  if (text.size() == 4 || text.size() == 8) {
    if (!readDigits(text, bytes, 4 - text.size() / 2)) {
      return std::nullopt;
    }
    return UUID(bytes);
  }
  if (text.size() != kLongLength) {
    return std::nullopt;
  }
  std::string digits;
  for (std::size_t index = 0; index < text.size(); ++index) {
    if (isHyphenPlace(index) != (text[index] == '-')) {
      return std::nullopt;
    }
    if (!isHyphenPlace(index)) {
      digits += text[index];
    }
  }
  if (!readDigits(digits, bytes, 0)) {
    return std::nullopt;
  }
  return UUID(bytes);
}

UUID UUID::withString(std::string_view text) { return fromText(text).value_or(UUID()); }

UUID UUID::version5(const UUID& nameSpace, std::string_view name) {
  sha1_ctx context;
  sha1_init(&context);
  sha1_update(&context, nameSpace.bytes_.size(), nameSpace.bytes_.data());
  sha1_update(&context, name.size(), reinterpret_cast<const std::uint8_t*>(name.data()));
  std::array<std::uint8_t, 16> bytes{};
  sha1_digest(&context, bytes.size(), bytes.data());
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0F) | 0x50);
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3F) | 0x80);
  return UUID(bytes);
}

std::string UUID::longText() const {
  std::string text = hexText(bytes_);
  for (const std::size_t place : {8, 13, 18, 23}) {
    text.insert(place, 1, '-');
  }
  return text;
}

std::string UUID::text() const {
  if (!std::equal(bytes_.begin() + 4, bytes_.end(), kBluetoothBase.begin() + 4)) {
    return longText();
  }
  const bool fitsInTwoBytes = bytes_[0] == 0 && bytes_[1] == 0;
  return hexText(ByteView(bytes_).subspan(fitsInTwoBytes ? 2 : 0, fitsInTwoBytes ? 2 : 4));
}

}  // namespace wrixel2::platform
