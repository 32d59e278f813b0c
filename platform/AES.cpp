#include "platform/AES.h"

#include <array>

#include <nettle/aes.h>
#include <nettle/md5.h>

namespace wrixel2::platform {
namespace {

/// The value of one pair's leading hexadecimal digits.
std::uint8_t valueOfPair(std::string_view pair) {
  unsigned value = 0;
  for (const char character : pair) {
    const auto digit = hexDigitValue(character);
    if (!digit) {
      break;
    }
    value = value * 16 + *digit;
  }
  return static_cast<std::uint8_t>(value);
}

template <typename Context, auto SetEncryptKey, auto SetDecryptKey, auto Encrypt, auto Decrypt>
void runCipher(AESOperation operation, const Bytes& key, ByteView input, Bytes& output) {
  Context context;
  switch (operation) {
    case AESOperation::encrypt:
      SetEncryptKey(&context, key.data());
      Encrypt(&context, input.size(), output.data(), input.data());
      return;
    case AESOperation::decrypt:
      SetDecryptKey(&context, key.data());
      Decrypt(&context, input.size(), output.data(), input.data());
      return;
  }
}

}  // namespace

std::string md5(std::string_view text) {
  md5_ctx context;
  md5_init(&context);
  md5_update(&context, text.size(), reinterpret_cast<const std::uint8_t*>(text.data()));
  std::array<std::uint8_t, MD5_DIGEST_SIZE> digest{};
  md5_digest(&context, digest.size(), digest.data());
  return hexText(digest);
}

Bytes dataFromHexString(std::string_view text) {
  Bytes bytes;
  for (std::size_t index = 0; index < text.size(); index += 2) {
    bytes.push_back(valueOfPair(text.substr(index, 2)));
  }
  return bytes;
}

std::optional<Bytes> AES128Operation(AESOperation operation, ByteView data, std::string_view key,
                                     std::string_view /*iv*/, Log& log) {
  const Bytes keyBytes = dataFromHexString(key);
  if (keyBytes.size() != AES128_KEY_SIZE && keyBytes.size() != AES192_KEY_SIZE &&
      keyBytes.size() != AES256_KEY_SIZE) {
    log.writePlain("Failed to create a cryptographic context.");
    return std::nullopt;
  }
  if (data.size() % AES_BLOCK_SIZE != 0) {
    // Without padding a partial block is found only when the last step asks for the rest of it.
    log.writePlain("Failed to finish the encrypt or decrypt operation");
    return std::nullopt;
  }
  Bytes output(data.size());
  switch (keyBytes.size()) {
    case AES128_KEY_SIZE:
      runCipher<aes128_ctx, aes128_set_encrypt_key, aes128_set_decrypt_key, aes128_encrypt,
                aes128_decrypt>(operation, keyBytes, data, output);
      break;
    case AES192_KEY_SIZE:
      runCipher<aes192_ctx, aes192_set_encrypt_key, aes192_set_decrypt_key, aes192_encrypt,
                aes192_decrypt>(operation, keyBytes, data, output);
      break;
    default:
      runCipher<aes256_ctx, aes256_set_encrypt_key, aes256_set_decrypt_key, aes256_encrypt,
                aes256_decrypt>(operation, keyBytes, data, output);
      break;
  }
  return output;
}

std::optional<Bytes> AES128EncryptedDataWithKey(ByteView data, std::string_view key, Log& log) {
  return AES128Operation(AESOperation::encrypt, data, key, {}, log);
}

std::optional<Bytes> AES128DecryptedDataWithKey(ByteView data, std::string_view key, Log& log) {
  return AES128Operation(AESOperation::decrypt, data, key, {}, log);
}

std::optional<Bytes> AES128EncryptedDataWithKeyIv(ByteView data, std::string_view key,
                                                  std::string_view iv, Log& log) {
  return AES128Operation(AESOperation::encrypt, data, key, iv, log);
}

std::optional<Bytes> AES128DecryptedDataWithKeyIv(ByteView data, std::string_view key,
                                                  std::string_view iv, Log& log) {
  return AES128Operation(AESOperation::decrypt, data, key, iv, log);
}

}  // namespace wrixel2::platform
