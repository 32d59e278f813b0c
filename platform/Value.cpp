#include "platform/Value.h"

#include <array>
#include <cmath>
#include <limits>

namespace wrixel2::platform {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

bool isDigit(char character) { return character >= '0' && character <= '9'; }

std::string_view withoutLeadingBlanks(std::string_view text) {
  const auto start = text.find_first_not_of(kBlanks);
  return start == std::string_view::npos ? std::string_view() : text.substr(start);
}

bool takeSign(std::string_view& text) {
  if (text.empty() || (text.front() != '-' && text.front() != '+')) {
    return false;
  }
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  return negative;
}

bool boolOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  takeSign(text);
  const auto start = text.find_first_not_of('0');
  if (start == std::string_view::npos) {
    return false;
  }
  const char first = text[start];
  return first == 'Y' || first == 'y' || first == 'T' || first == 't' || isDigit(first);
}

/// The leading digits, held to the range of the integer that is wanted.
template <typename Integer>
Integer integerOfText(std::string_view text) {
  text = withoutLeadingBlanks(text);
  const bool negative = takeSign(text);
  using Limits = std::numeric_limits<Integer>;
  Integer value = 0;
  for (const char character : text) {
    if (!isDigit(character)) {
      break;
    }
    const Integer digit = character - '0';
    // Counted downwards: the negative range is the larger one.
    if (value < (Limits::min() + digit) / 10) {
      return negative ? Limits::min() : Limits::max();
    }
    value = static_cast<Integer>(value * 10 - digit);
  }
  if (negative) {
    return value;
  }
  return value == Limits::min() ? Limits::max() : static_cast<Integer>(-value);
}

std::int64_t integerOfReal(double value) {
  constexpr double limit = 9223372036854775808.0;  // 2^63
  if (std::isnan(value)) {
    return 0;
  }
  if (value >= limit) {
    return std::numeric_limits<std::int64_t>::max();
  }
  if (value < -limit) {
    return std::numeric_limits<std::int64_t>::min();
  }
  return static_cast<std::int64_t>(value);
}

}  // namespace

bool Value::boolValue() const {
  if (const auto* flag = std::get_if<bool>(&variant_)) {
    return *flag;
  }
  if (const auto* integer = std::get_if<std::int64_t>(&variant_)) {
    return *integer != 0;
  }
  if (const auto* real = std::get_if<double>(&variant_)) {
    return *real != 0;
  }
  return text() != nullptr && boolOfText(*text());
}

std::int64_t Value::longValue() const {
  if (const auto* flag = std::get_if<bool>(&variant_)) {
    return *flag ? 1 : 0;
  }
  if (const auto* integer = std::get_if<std::int64_t>(&variant_)) {
    return *integer;
  }
  if (const auto* real = std::get_if<double>(&variant_)) {
    return integerOfReal(*real);
  }
  return text() != nullptr ? integerOfText<std::int64_t>(*text()) : 0;
}

std::int32_t Value::intValue() const {
  if (text() != nullptr) {
    return integerOfText<std::int32_t>(*text());
  }
  return static_cast<std::int32_t>(longValue());
}

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

bool boolForKey(const Dictionary& dictionary, std::string_view key) {
  const auto* value = find(dictionary, key);
  return value != nullptr && value->boolValue();
}

std::int32_t intForKey(const Dictionary& dictionary, std::string_view key) {
  const auto* value = find(dictionary, key);
  return value != nullptr ? value->intValue() : 0;
}

std::optional<std::string> textForKey(const Dictionary& dictionary, std::string_view key) {
  const auto* value = find(dictionary, key);
  if (value == nullptr || value->text() == nullptr) {
    return std::nullopt;
  }
  return *value->text();
}

std::string_view kindName(const Value& value) {
  constexpr std::array<std::string_view, 8> names = {"boolean", "integer", "real",  "text",
                                                     "data",    "date",    "array", "dictionary"};
  return names[value.variant().index()];
}

}  // namespace wrixel2::platform
