#include "platform/linux/XmlPropertyList.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <system_error>

#include <fmt/format.h>

#include "platform/Utf8.h"
#include "platform/linux/BusText.h"
#include "platform/linux/PropertyListLimits.h"

namespace wrixel2::platform::linux {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

std::string_view trimmed(std::string_view text) {
  const auto begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) {
    return {};
  }
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

template <typename Number, typename... Form>
std::optional<Number> wholeNumber(std::string_view text, Form... form) {
  Number number{};
  const auto* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, number, form...);
  return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

// Counts up to the unsigned range; hexadecimal with 0x.
std::optional<std::int64_t> integerFromText(std::string_view text) {
  const bool isNegative = text.starts_with('-');
  if (isNegative || text.starts_with('+')) {
    text.remove_prefix(1);
  }
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  const auto magnitude = isHexadecimal ? wholeNumber<std::uint64_t>(text.substr(2), 16)
                                       : wholeNumber<std::uint64_t>(text, 10);
  constexpr std::uint64_t kMostNegative = std::uint64_t{1} << 63;
  if (!magnitude || (isNegative && *magnitude > kMostNegative)) {
    return std::nullopt;
  }
  return static_cast<std::int64_t>(isNegative ? 0 - *magnitude : *magnitude);
}

std::optional<double> realFromText(std::string_view text) {
  if (text.starts_with('+')) {
    text.remove_prefix(1);
  }
  return wholeNumber<double>(text);
}

// "2026-03-01T07:04:05Z"
std::optional<Date> dateFromText(std::string_view text) {
  constexpr std::string_view kForm = "0000-00-00T00:00:00Z";
  const auto isAsFormed = [](char character, char form) {
    return form == '0' ? character >= '0' && character <= '9' : character == form;
  };
  if (text.size() != kForm.size() ||
      !std::equal(text.begin(), text.end(), kForm.begin(), isAsFormed)) {
    return std::nullopt;
  }
  const auto field = [&](std::size_t offset, std::size_t length) {
    return wholeNumber<int>(text.substr(offset, length)).value_or(0);
  };
  const std::chrono::year_month_day day(std::chrono::year(field(0, 4)),
                                        std::chrono::month(static_cast<unsigned>(field(5, 2))),
                                        std::chrono::day(static_cast<unsigned>(field(8, 2))));
  const int hour = field(11, 2);
  const int minute = field(14, 2);
  const int second = field(17, 2);
  if (!day.ok() || hour > 23 || minute > 59 || second > 60) {
    return std::nullopt;
  }
  return std::chrono::sys_days(day) + std::chrono::hours(hour) + std::chrono::minutes(minute) +
         std::chrono::seconds(second);
}

std::optional<Bytes> dataFromBase64(std::string_view text) {
  constexpr std::string_view kDigits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  Bytes data;
  std::uint32_t bits = 0;
  int bitCount = 0;
  std::size_t digitCount = 0;
  std::size_t paddingCount = 0;
  for (const char character : text) {
    if (kBlanks.find(character) != std::string_view::npos) {
      continue;
    }
    ++digitCount;
    if (character == '=') {
      ++paddingCount;
      continue;
    }
    const auto digit = kDigits.find(character);
    if (digit == std::string_view::npos || paddingCount > 0) {
      return std::nullopt;
    }
    bits = bits << 6 | static_cast<std::uint32_t>(digit);
    bitCount += 6;
    if (bitCount >= 8) {
      bitCount -= 8;
      data.push_back(static_cast<std::uint8_t>(bits >> bitCount));
    }
  }
  return digitCount % 4 == 0 && paddingCount <= 2 ? std::optional(data) : std::nullopt;
}

class Reader {
 public:
  explicit Reader(std::string_view text) : text_(text) {}

  Result<Value> read() {
    if (!isBusText(text_)) {
      return Error{0, "it is not UTF-8 text"};
    }
    consume("\xEF\xBB\xBF");
    if (auto error = skipMarkup(true)) {
      return *error;
    }
    const auto document = startTag();
    if (!document) {
      return document.error();
    }
    if (document->name != "plist" || document->isEmpty) {
      return failure("it is not a property list");
    }
    auto value = nextElement(0);
    if (!value) {
      return value;
    }
    if (auto error = endTag("plist")) {
      return *error;
    }
    if (auto error = skipMarkup(false)) {
      return *error;
    }
    if (!atEnd()) {
      return failure("something follows the property list");
    }
    return value;
  }

 private:
  struct Tag {
    std::string_view name;
    bool isEmpty;  ///< <name/>
  };

  bool atEnd() const { return position_ == text_.size(); }
  std::string_view rest() const { return text_.substr(position_); }

  bool consume(std::string_view token) {
    if (!rest().starts_with(token)) {
      return false;
    }
    position_ += token.size();
    return true;
  }

  Error failure(std::string_view what) const {
    const auto before = text_.substr(0, position_);
    return {0,
            fmt::format("line {}: {}", 1 + std::count(before.begin(), before.end(), '\n'), what)};
  }

  // What is before the token, which is consumed as well; none where it does not come any more.
  std::optional<std::string_view> until(std::string_view token) {
    const auto end = text_.find(token, position_);
    if (end == std::string_view::npos) {
      return std::nullopt;
    }
    const auto content = text_.substr(position_, end - position_);
    position_ = end + token.size();
    return content;
  }

  // Blanks, comments and processing instructions; the document type only before the document.
  ErrorOrNone skipMarkup(bool allowsDocumentType) {
    while (true) {
      position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
      bool isClosed = true;
      if (consume("<?")) {
        isClosed = until("?>").has_value();
      } else if (consume("<!--")) {
        isClosed = until("-->").has_value();
      } else if (allowsDocumentType && consume("<!DOCTYPE")) {
        const auto declaration = until(">");
        if (declaration && declaration->find('[') != std::string_view::npos) {
          return failure("the document type has declarations");
        }
        isClosed = declaration.has_value();
      } else {
        return std::nullopt;
      }
      if (!isClosed) {
        return failure("markup is not closed");
      }
    }
  }

  Result<Tag> startTag() {
    if (!consume("<")) {
      return failure(atEnd() ? "it ends too early" : "an element is missing");
    }
    auto content = until(">");
    if (!content || content->find('<') != std::string_view::npos) {
      return failure("a tag is not closed");
    }
    const bool isEmpty = content->ends_with('/');
    if (isEmpty) {
      content->remove_suffix(1);
    }
    // Attributes say nothing here: the document's version has been the same for ever.
    return Tag{content->substr(0, content->find_first_of(kBlanks)), isEmpty};
  }

  ErrorOrNone endTag(std::string_view name) {
    if (auto error = skipMarkup(false)) {
      return error;
    }
    if (consume("</") && consume(name)) {
      position_ = std::min(text_.find_first_not_of(kBlanks, position_), text_.size());
      if (consume(">")) {
        return std::nullopt;
      }
    }
    return failure(fmt::format("</{}> is missing", name));
  }

  // Skips what may be between elements and tells whether an end tag comes.
  Result<bool> atEndTag() {
    if (auto error = skipMarkup(false)) {
      return *error;
    }
    return rest().starts_with("</");
  }

  Result<Value> nextElement(int depth) {
    if (auto error = skipMarkup(false)) {
      return *error;
    }
    const auto tag = startTag();
    return tag ? element(*tag, depth) : tag.error();
  }

  Result<Value> element(const Tag& tag, int depth) {
    if (depth > kMaximumPropertyListDepth) {
      return failure("it is nested too deeply");
    }
    if (auto error = budget_.spend(0)) {
      return *error;
    }
    if (tag.name == "dict") {
      return tag.isEmpty ? Result<Value>(Dictionary()) : dictionary(depth);
    }
    if (tag.name == "array") {
      return tag.isEmpty ? Result<Value>(Array()) : array(depth);
    }
    const auto content = tag.isEmpty ? Result<std::string>(std::string()) : characters(tag.name);
    if (!content) {
      return content.error();
    }
    return leaf(tag.name, *content);
  }

  Result<Value> array(int depth) {
    Array values;
    while (true) {
      const auto isEnd = atEndTag();
      if (!isEnd) {
        return isEnd.error();
      }
      if (*isEnd) {
        break;
      }
      auto value = nextElement(depth + 1);
      if (!value) {
        return value;
      }
      values.push_back(std::move(*value));
    }
    if (auto error = endTag("array")) {
      return *error;
    }
    return Value(std::move(values));
  }

  Result<Value> dictionary(int depth) {
    Dictionary entries;
    while (true) {
      const auto isEnd = atEndTag();
      if (!isEnd) {
        return isEnd.error();
      }
      if (*isEnd) {
        break;
      }
      const auto tag = startTag();
      if (!tag) {
        return tag.error();
      }
      if (tag->name != "key") {
        return failure("a key is missing");
      }
      auto key = tag->isEmpty ? Result<std::string>(std::string()) : characters("key");
      if (!key) {
        return key.error();
      }
      auto value = nextElement(depth + 1);
      if (!value) {
        return value;
      }
      entries.insert_or_assign(std::move(*key), std::move(*value));
    }
    if (auto error = endTag("dict")) {
      return *error;
    }
    return Value(std::move(entries));
  }

  Result<Value> leaf(std::string_view name, const std::string& content) {
    const auto orFailure = [&](const auto& value) {
      return value ? Result<Value>(*value)
                   : Result<Value>(failure(fmt::format("this is not a {}", name)));
    };
    if (name == "string") {
      return Value(content);
    }
    if (name == "integer") {
      return orFailure(integerFromText(trimmed(content)));
    }
    if (name == "real") {
      return orFailure(realFromText(trimmed(content)));
    }
    if (name == "date") {
      return orFailure(dateFromText(trimmed(content)));
    }
    if (name == "data") {
      return orFailure(dataFromBase64(content));
    }
    if ((name == "true" || name == "false") && trimmed(content).empty()) {
      return Value(name == "true");
    }
    return failure(fmt::format("the element {} is unknown or has no such content", name));
  }

  // The characters of an element up to and with its end tag.
  Result<std::string> characters(std::string_view name) {
    std::string content;
    while (true) {
      const auto special = std::min(text_.find_first_of("<&", position_), text_.size());
      content += text_.substr(position_, special - position_);
      position_ = special;
      if (consume("<![CDATA[")) {
        const auto section = until("]]>");
        if (!section) {
          return failure("markup is not closed");
        }
        content += *section;
      } else if (consume("<!--")) {
        if (!until("-->")) {
          return failure("markup is not closed");
        }
      } else if (consume("&")) {
        if (auto error = reference(content)) {
          return *error;
        }
      } else {
        break;
      }
    }
    if (auto error = endTag(name)) {
      return *error;
    }
    return content;
  }

  // "amp;", "#38;" or "#x26;" behind the ampersand.
  ErrorOrNone reference(std::string& content) {
    const auto name = until(";").value_or("");
    struct Entity {
      std::string_view name;
      char character;
    };
    static constexpr Entity kEntities[] = {
        {"amp", '&'}, {"lt", '<'}, {"gt", '>'}, {"quot", '"'}, {"apos", '\''}};
    for (const auto& entity : kEntities) {
      if (entity.name == name) {
        content += entity.character;
        return std::nullopt;
      }
    }
    std::optional<std::uint32_t> number;
    if (name.starts_with("#x")) {
      number = wholeNumber<std::uint32_t>(name.substr(2), 16);
    } else if (name.starts_with("#")) {
      number = wholeNumber<std::uint32_t>(name.substr(1), 10);
    }
    std::string character;
    if (number && *number <= 0x10FFFF) {
      character = utf8FromCharacter(*number);
    }
    if (character.empty() || !isBusText(character)) {
      return failure("a character reference is none");
    }
    content += character;
    return std::nullopt;
  }

  std::string_view text_;
  std::size_t position_ = 0;
  PropertyListBudget budget_;
};

}  // namespace

Result<Value> valueFromXmlPropertyList(std::string_view text) { return Reader(text).read(); }

}  // namespace wrixel2::platform::linux
