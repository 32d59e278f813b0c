#include <chrono>
#include <string>

#include <gtest/gtest.h>

#include "companion/Markup.h"

namespace wrixel2::companion {
namespace {

TEST(MarkupTest, GivesThePlainText) {
  const struct {
    const char* what;
    std::string markup;
    std::string text;
  } kCases[] = {
      {"plain", "See you at six", "See you at six"},
      {"empty", "", ""},
      {"tags", "<b>See</b> you <i>at</i> <u>six</u>", "See you at six"},
      {"attributes", R"(<a href="https://example.org/?a>b" title='x>y'>here</a>!)", "here!"},
      {"image", R"(a<img src="/x.png" alt="cat"/>b)", "ab"},
      {"lineBreaks", "one<br>two<br/>three<BR />four", "one\ntwo\nthree\nfour"},
      {"otherTagsWithTheSameBeginning", "<break>x</break>", "x"},
      {"comment", "a<!-- <b> hidden > -->b", "ab"},
      {"entities", "&lt;b&gt; &amp;amp; &quot;x&quot; &apos;y&apos;", "<b> &amp; \"x\" 'y'"},
      {"numbers", "&#65;&#x42;&#x20ac;&#128512;", "AB€😀"},
      {"decodedTextIsNotMarkupAgain", "&amp;lt;b&gt;&lt;b&gt;", "&lt;b><b>"},
      {"lessThan", "1 < 2 <3 <- <", "1 < 2 <3 <- <"},
      {"address", "Anna <anna@example.org>", "Anna <anna@example.org>"},
      {"unclosedTag", "a <b and nothing more", "a <b and nothing more"},
      {"unclosedTagBeforeAnother", "a <b c <i>d</i>", "a <b c d"},
      {"unclosedQuote", "a <b c=\"d>e", "a <b c=\"d>e"},
      {"unclosedComment", "a <!-- b", "a <!-- b"},
      {"bareAmpersand", "fish & chips; R&D; &", "fish & chips; R&D; &"},
      {"unknownEntity", "&hearts;&;&#;&#x;", "&hearts;&;&#;&#x;"},
      {"noCharacter", "&#0;&#xD800;&#x110000;&#99999999999;",
       "&#0;&#xD800;&#x110000;&#99999999999;"},
      {"otherBytesStay", "gr\xc3\xbc\xc3\x9f \xff", "gr\xc3\xbc\xc3\x9f \xff"},
  };
  for (const auto& c : kCases) {
    EXPECT_EQ(textWithoutMarkup(c.markup), c.text) << c.what;
  }
}

TEST(MarkupTest, TheTimeTakenStaysInProportionToTheText) {
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
