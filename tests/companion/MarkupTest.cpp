#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "companion/Markup.h"

namespace wrixel2::companion {
namespace {

struct Case {
  std::string name;
  std::string markup;
  std::string text;
};

class MarkupTest : public testing::TestWithParam<Case> {};

TEST_P(MarkupTest, GivesThePlainText) {
  EXPECT_EQ(textWithoutMarkup(GetParam().markup), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(
    Bodies, MarkupTest,
    testing::Values(
        Case{"plain", "See you at six", "See you at six"}, Case{"empty", "", ""},
        Case{"tags", "<b>See</b> you <i>at</i> <u>six</u>", "See you at six"},
        Case{"attributes", R"(<a href="https://example.org/?a>b" title='x>y'>here</a>!)", "here!"},
        Case{"image", R"(a<img src="/x.png" alt="cat"/>b)", "ab"},
        Case{"lineBreaks", "one<br>two<br/>three<BR />four", "one\ntwo\nthree\nfour"},
        Case{"otherTagsWithTheSameBeginning", "<break>x</break>", "x"},
        Case{"comment", "a<!-- <b> hidden > -->b", "ab"},
        Case{"entities", "&lt;b&gt; &amp;amp; &quot;x&quot; &apos;y&apos;", "<b> &amp; \"x\" 'y'"},
        Case{"numbers", "&#65;&#x42;&#x20ac;&#128512;", "AB€😀"},
        Case{"decodedTextIsNotMarkupAgain", "&amp;lt;b&gt;&lt;b&gt;", "&lt;b><b>"},
        Case{"lessThan", "1 < 2 <3 <- <", "1 < 2 <3 <- <"},
        Case{"address", "Anna <anna@example.org>", "Anna <anna@example.org>"},
        Case{"unclosedTag", "a <b and nothing more", "a <b and nothing more"},
        Case{"unclosedTagBeforeAnother", "a <b c <i>d</i>", "a <b c d"},
        Case{"unclosedQuote", "a <b c=\"d>e", "a <b c=\"d>e"},
        Case{"unclosedComment", "a <!-- b", "a <!-- b"},
        Case{"bareAmpersand", "fish & chips; R&D; &", "fish & chips; R&D; &"},
        Case{"unknownEntity", "&hearts;&;&#;&#x;", "&hearts;&;&#;&#x;"},
        Case{"noCharacter", "&#0;&#xD800;&#x110000;&#99999999999;",
             "&#0;&#xD800;&#x110000;&#99999999999;"},
        Case{"otherBytesStay", "gr\xc3\xbc\xc3\x9f \xff", "gr\xc3\xbc\xc3\x9f \xff"}),
    [](const auto& testCase) { return testCase.param.name; });

TEST(MarkupCostTest, TheTimeTakenStaysInProportionToTheText) {
  std::string hostile;
  for (int i = 0; i < 100'000; ++i) {
    hostile += "<a x='\"<!--";
  }
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(textWithoutMarkup(hostile).empty());
  // Far above what it takes, far below what a scan to the end for each "<" would.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace wrixel2::companion
