#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "band/BandText.h"
#include "platform/Bytes.h"

namespace wrixel2::band {
namespace {

using namespace std::string_view_literals;

TEST(BandTextTest, ShowsWholeCharactersOnly) {
  const struct {
    const char* name;
    std::string_view bytes;
    std::string_view shown;
  } cases[] = {
      {"nothing", ""sv, ""sv},
      {"plain text", "See you"sv, "See you"sv},
      {"NULs inside and behind", "a\0b\0\0"sv, "ab"sv},
      {"characters of two, three and four bytes", "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"sv,
       "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"sv},
      {"one of two cut after the first byte", "x\xC3"sv, "x"sv},
      {"one of three cut after the second", "x\xE2\x82"sv, "x"sv},
      {"one of four cut after the third", "x\xF0\x9F\x98"sv, "x"sv},
      {"cut, then filled up with NULs", "x\xE2\x82\0\0"sv, "x"sv},
      {"a stray continuation", "a\x80z"sv, "a\xEF\xBF\xBDz"sv},
      {"a stray continuation at the end", "a\x80"sv, "a\xEF\xBF\xBD"sv},
      {"a broken character inside", "\xE2\x82z"sv, "\xEF\xBF\xBDz"sv},
      {"an overlong form", "\xC0\xAF"sv, "\xEF\xBF\xBD\xEF\xBF\xBD"sv},
      {"a surrogate", "\xED\xA0\x80"sv, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"sv},
      {"above the last character", "\xF4\x90\x80\x80z"sv,
       "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBDz"sv},
      {"no beginning of anything", "\xFF"sv, "\xEF\xBF\xBD"sv},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(displayedText(platform::bytesOfText(test.bytes)), test.shown) << test.name;
  }
}

}  // namespace
}  // namespace wrixel2::band
