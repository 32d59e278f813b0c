#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/AES.h"
#include "platform/Error.h"
#include "platform/simulated/RecordingLog.h"

namespace wrixel2::platform {
namespace {

TEST(MD5, IsTheDigestAsText) {
  // RFC 1321, A.5.
  EXPECT_EQ(md5(""), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(md5("message digest"), "f96b697d7cb7938d525a2f31aaf161d0");
}

TEST(HexText, IsReadWithoutRejectingAnything) {
  const std::pair<std::string, Bytes> cases[] = {{"", {}},       {"0a1", {0x0a, 0x01}},
                                                 {"zz", {0x00}}, {"4gFF", {0x04, 0xff}},
                                                 {"g4", {0x00}}, {"aB", {0xab}}};
  for (const auto& [text, bytes] : cases) {
    EXPECT_EQ(dataFromHexString(text), bytes) << text;
  }
}

TEST(AES128, GivesTheStandardsBlocksOrRefusesWithAPlainLine) {
  simulated::RecordingLog log;
  // FIPS 197, appendix C: one block under keys of 128, 192 and 256 bits.
  const Bytes plain = dataFromHexString("00112233445566778899aabbccddeeff");
  const std::pair<std::string, std::string> cases[] = {
      {"000102030405060708090a0b0c0d0e0f", "69c4e0d86a7b0430d8cdb78070b4c55a"},
      {"000102030405060708090a0b0c0d0e0f1011121314151617", "dda97ca4864cdfe06eaf70a0ec0d7191"},
      {"000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f",
       "8ea2b7ca516745bfeafc49904b496089"},
  };
  for (const auto& [key, cipher] : cases) {
    const auto encrypted = AES128EncryptedDataWithKey(plain, key, log);
    ASSERT_TRUE(encrypted) << key;
    EXPECT_EQ(hexText(*encrypted), cipher);
    EXPECT_EQ(AES128DecryptedDataWithKey(*encrypted, key, log), plain);
    EXPECT_EQ(AES128EncryptedDataWithKeyIv(plain, key, "ffff", log), encrypted)
        << "there is no chaining, so a vector changes nothing";
  }
  EXPECT_TRUE(log.lines().empty());
  EXPECT_FALSE(AES128EncryptedDataWithKey(plain, "0011", log));
  EXPECT_FALSE(AES128EncryptedDataWithKey(Bytes(15, 0), md5("key"), log));
  const std::vector<std::string> plainLines = {"Failed to create a cryptographic context.",
                                               "Failed to finish the encrypt or decrypt operation"};
  EXPECT_EQ(log.messages(""), plainLines);
}

TEST(Description, IsWhatTheLogShows) {
  EXPECT_EQ(description(ByteView()), "<>");
  EXPECT_EQ(description(Bytes{0x03, 0x00, 0xab, 0xcd, 0x0e}), "<0300abcd 0e>");
  EXPECT_EQ(description(ErrorOrNone()), "(null)");
  EXPECT_EQ(description(Error{7, "the band let go"}), "the band let go (code 7)");
}

}  // namespace
}  // namespace wrixel2::platform
