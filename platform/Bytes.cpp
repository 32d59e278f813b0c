#include "platform/Bytes.h"

namespace wrixel2::platform {
namespace {

void appendHex(std::string& text, std::uint8_t byte) {
  constexpr std::string_view digits = "0123456789abcdef";
  text += digits[byte >> 4];
  text += digits[byte & 0x0F];
}

}  // namespace

std::string hexText(ByteView bytes) {
  std::string text;
  text.reserve(bytes.size() * 2);
  for (const auto byte : bytes) {
    appendHex(text, byte);
  }
  return text;
}

std::string description(ByteView bytes) {
  std::string text = "<";
  for (std::size_t index = 0; index < bytes.size(); ++index) {
    if (index > 0 && index % 4 == 0) {
      text += ' ';
    }
    appendHex(text, bytes[index]);
  }
  return text + ">";
}

std::optional<std::uint8_t> hexDigitValue(char character) {
  if (character >= '0' && character <= '9') {
    return character - '0';
  }
  if (character >= 'a' && character <= 'f') {
    return character - 'a' + 10;
  }
  if (character >= 'A' && character <= 'F') {
    return character - 'A' + 10;
  }
  return std::nullopt;
}

Bytes bytesOfText(std::string_view text) { return {text.begin(), text.end()}; }

}  // namespace wrixel2::platform
