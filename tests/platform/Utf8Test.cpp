#include <string>

#include <gtest/gtest.h>

#include "platform/Utf8.h"

namespace wrixel2::platform {
namespace {

TEST(Utf8, APrefixCutsNoCharacterInTwo) {
  const std::string text = "a\u00E9\u20AC\U0001F600";
  const std::size_t lengths[] = {0, 1, 1, 3, 3, 3, 6, 6, 6, 6, 10, 10};
  for (std::size_t bytes = 0; bytes < std::size(lengths); ++bytes) {
    EXPECT_EQ(utf8Prefix(text, bytes), text.substr(0, lengths[bytes])) << bytes;
  }
}

TEST(Utf8, TellsWhatATextBeginsWith) {
  const struct {
    std::string text;
    std::optional<char32_t> character;
    std::size_t length;
    bool isCutOff = false;
  } cases[] = {
      {"A", U'A', 1},
      {std::string(1, '\0'), U'\0', 1},
      {"\xC3\xA4x", U'\u00e4', 2},
      {"\xE2\x82\xAC", U'\u20ac', 3},
      {"\xF0\x9F\x98\x80", U'\U0001F600', 4},
      {"\xF4\x8F\xBF\xBF", U'\U0010FFFF', 4},
      {"\xF0\x9F\x98", std::nullopt, 3, true},
      {"\xC3", std::nullopt, 1, true},
      {"\xE2\x82x", std::nullopt, 2},
      {"\x80", std::nullopt, 1},
      {"\xC0\x80", std::nullopt, 1},          // overlong NUL
      {"\xE0\x9F\xBF", std::nullopt, 1},      // overlong
      {"\xED\xA0\x80", std::nullopt, 1},      // surrogate
      {"\xF4\x90\x80\x80", std::nullopt, 1},  // above U+10FFFF
      {"\xFF", std::nullopt, 1},
  };
  for (const auto& [text, character, length, isCutOff] : cases) {
    SCOPED_TRACE(testing::PrintToString(text));
    const auto prefix = firstCharacter(text);
    EXPECT_EQ(prefix.character, character);
    EXPECT_EQ(prefix.length, length);
    EXPECT_EQ(prefix.isCutOff, isCutOff);
    EXPECT_EQ(isUtf8("before " + text), character.has_value());
  }
}

}  // namespace
}  // namespace wrixel2::platform
