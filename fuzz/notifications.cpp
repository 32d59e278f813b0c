// What apps ask the desktop to show: the markup of bodies, and the arguments of both services.

#include "companion/AppNotification.h"
#include "companion/Markup.h"
#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/Utf8.h"

namespace wrixel2::fuzz {
namespace {

using companion::textWithoutMarkup;
using platform::Array;

void markup(std::string_view body) {
  const auto text = textWithoutMarkup(body);
  check(text.size() <= body.size(), "a text is no longer than its markup");
  check(!platform::isUtf8(body) || platform::isUtf8(text), "UTF-8 stays UTF-8");
  if (body.find_first_of("<&") == std::string_view::npos) {
    check(text == body, "a text without markup stays as it is");
  }
  // References decoded are texts, which an app escapes to say the same again.
  std::string escaped;
  for (const char c : text) {
    escaped += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
  }
  check(textWithoutMarkup(escaped) == text, "an escaped text is that text");
}

/// Plain pieces and whole tags, as an app's toolkit makes them.
void tags(Input& input) {
  constexpr std::string_view kTags[] = {"<b>",         "</b>",
                                        "<i>",         "</i>",
                                        "<u >",        "<a href=\"x>y\">",
                                        "</a>",        "<img src='a' alt='<'/>",
                                        "<!-- <b> -->"};
  constexpr std::string_view kBreaks[] = {"<br>", "<br/>", "<BR />"};
  std::string body;
  std::string expected;
  for (int left = 12; left > 0 && !input.isEmpty(); --left) {
    const std::size_t kind = input.below(4);
    if (kind == 0) {
      body += input.oneOf(kTags);
    } else if (kind == 1) {
      body += input.oneOf(kBreaks);
      expected += '\n';
    } else {
      for (const char c : input.text(12)) {
        body += c == '<' ? "&lt;" : c == '&' ? "&amp;" : std::string(1, c);
        expected += c;
      }
    }
  }
  check(textWithoutMarkup(body) == expected, "tags go, line breaks and texts stay");
}

void arguments(Input& input) {
  constexpr std::string_view kHints[] = {"category", "desktop-entry", "transient",
                                         "title",    "body",          "urgency"};
  Array values;
  for (std::size_t left = input.below(10); left > 0; --left) {
    switch (input.below(3)) {
      case 0:
        values.emplace_back(input.text());
        break;
      case 1:
        values.emplace_back(input.dictionary(kHints, 2));
        break;
      default:
        values.push_back(input.value(2));
        break;
    }
  }
  for (const auto& made : {companion::notificationFromNotify(values),
                           companion::notificationFromAddNotification(values)}) {
    if (!made) {
      check(!made.error().localizedDescription.empty(), "an error has words");
      continue;
    }
    check(!made->title || !made->title->empty(), "no title is none, not an empty one");
    check(!made->sender || made->title->starts_with(*made->sender),
          "a sender is who the title names");
    check(made->app.size() <= platform::kLongestIdentifier &&
              made->appName.size() <= platform::kLongestIdentifier &&
              made->body.size() <= platform::kLongestText,
          "what is kept is bounded");
    const auto userInfo = companion::bulletinUserInfo(*made);
    check(platform::textForKey(userInfo, "sectionID") == made->app, "the bulletin names the app");
    check(platform::textForKey(userInfo, "message") == made->body, "the bulletin has the body");
  }
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  switch (input.below(3)) {
    case 0:
      markup(input.restAsText());
      break;
    case 1:
      tags(input);
      break;
    default:
      arguments(input);
      break;
  }
  return 0;
}
