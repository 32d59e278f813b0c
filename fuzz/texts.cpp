// Small texts that come from outside: UUIDs, hexadecimal keys, numbers in messages, UTF-8.

#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/AES.h"
#include "platform/UUID.h"
#include "platform/Utf8.h"
#include "platform/simulated/RecordingLog.h"

namespace wrixel2::fuzz {
namespace {

using platform::Bytes;
using platform::UUID;

void uuids(std::string_view text) {
  const auto uuid = UUID::fromText(text);
  check(!uuid || text.size() == 4 || text.size() == 8 || text.size() == 36,
        "only texts of three lengths are UUIDs");
  if (uuid) {
    check(UUID::fromText(uuid->text()) == uuid, "the short form reads back");
    check(UUID::fromText(uuid->longText()) == uuid, "the long form reads back");
    check(uuid->longText().size() == 36, "the long form has 36 characters");
    check(uuid->text().size() <= text.size(), "the text form is the shortest");
  }
}

void keys(std::string_view text, Input& input) {
  const Bytes bytes = platform::dataFromHexString(text);
  check(bytes.size() == (text.size() + 1) / 2, "two digits a byte, a last one too");
  check(platform::dataFromHexString(platform::hexText(bytes)) == bytes, "bytes come back");
  const auto digest = platform::md5(text);
  check(digest.size() == 32 &&
            std::ranges::all_of(digest,
                                [](char c) { return platform::hexDigitValue(c).has_value(); }),
        "a digest is 32 digits");

  platform::simulated::RecordingLog log;
  const Bytes data = input.bytes();
  const bool isKey = bytes.size() == 16 || bytes.size() == 24 || bytes.size() == 32;
  const auto encrypted = platform::AES128EncryptedDataWithKey(data, text, log);
  check(encrypted.has_value() == (isKey && data.size() % 16 == 0),
        "whole blocks and a key of a known length are encrypted, and nothing else");
  check(encrypted.has_value() == log.lines().empty(), "a failure has a line");
  if (encrypted) {
    check(platform::AES128DecryptedDataWithKey(*encrypted, text, log) == data,
          "what was encrypted comes back");
  }
}

void numbers(std::string_view text) {
  const platform::Value value{text};
  check(value.intValue() == std::clamp<std::int64_t>(value.longValue(), INT32_MIN, INT32_MAX),
        "a text's number is held to the range");
  const platform::Value again(std::to_string(value.longValue()));
  check(again.longValue() == value.longValue(), "a number's text is its number");
  check(value.longValue() == 0 || value.boolValue(), "a number other than 0 is true");
}

void characters(std::string_view text) {
  std::string whole;
  std::size_t length = 0;
  bool isValid = true;
  for (auto rest = text; !rest.empty();) {
    const auto prefix = platform::firstCharacter(rest);
    check(prefix.length >= 1 && prefix.length <= rest.size(), "a prefix is part of the text");
    check(!prefix.isCutOff || prefix.length == rest.size(), "only the end is cut off");
    if (prefix.character) {
      whole += platform::utf8FromCharacter(*prefix.character);
    } else {
      isValid = false;
      whole += rest.substr(0, prefix.length);
    }
    length += prefix.length;
    rest.remove_prefix(prefix.length);
  }
  check(whole == text && length == text.size(), "the characters are the text");
  check(platform::isUtf8(text) == isValid, "a text is valid when all of its characters are");
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  const auto text = input.text();
  uuids(text);
  keys(text, input);
  numbers(text);
  characters(text);
  return 0;
}
