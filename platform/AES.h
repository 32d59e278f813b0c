#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/Log.h"

namespace wrixel2::platform {

enum class AESOperation : std::uint8_t { encrypt = 0, decrypt = 1 };

/// The MD5 digest of the text's UTF-8 bytes, as 32 lower-case hexadecimal digits.
std::string md5(std::string_view text);

/// The bytes of a text of hexadecimal digits, two a byte. Nothing is rejected: a pair counts as far
/// as it begins with digits (0 where it does not), and a last single digit is a byte of its own.
Bytes dataFromHexString(std::string_view text);

/// AES in ECB mode without padding, with keys as hexadecimal text (of 16, 24 or 32 bytes; 16 is
/// AES-128). ECB has no use for an initialization vector: one that is given is ignored.
///
/// The result is as long as the data. None after a plain log line where the key has another length,
/// or the data is not whole blocks of 16 bytes.
std::optional<Bytes> AES128Operation(AESOperation operation, ByteView data, std::string_view key,
                                     std::string_view iv, Log& log);
std::optional<Bytes> AES128EncryptedDataWithKey(ByteView data, std::string_view key, Log& log);
std::optional<Bytes> AES128DecryptedDataWithKey(ByteView data, std::string_view key, Log& log);
std::optional<Bytes> AES128EncryptedDataWithKeyIv(ByteView data, std::string_view key,
                                                  std::string_view iv, Log& log);
std::optional<Bytes> AES128DecryptedDataWithKeyIv(ByteView data, std::string_view key,
                                                  std::string_view iv, Log& log);

}  // namespace wrixel2::platform
