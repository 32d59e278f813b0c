#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Date.h"

namespace wrixel2::platform {

class Value;

/// Keys to values: settings, messages' user infos and property lists are all of this kind.
using Dictionary = std::map<std::string, Value, std::less<>>;
using Array = std::vector<Value>;

/// One value of the kinds that messages and property lists carry.
class Value {
 public:
  using Variant =
      std::variant<bool, std::int64_t, double, std::string, Bytes, Date, Array, Dictionary>;

  Value(bool value) : variant_(value) {}                     // NOLINT(*-explicit-*)
  Value(int value) : variant_(std::int64_t{value}) {}        // NOLINT(*-explicit-*)
  Value(unsigned value) : variant_(std::int64_t{value}) {}   // NOLINT(*-explicit-*)
  Value(long value) : variant_(std::int64_t{value}) {}       // NOLINT(*-explicit-*)
  Value(long long value) : variant_(std::int64_t{value}) {}  // NOLINT(*-explicit-*)
  /// Counts above the signed range wrap, as they do in the platform's numbers.
  Value(unsigned long value) : variant_(static_cast<std::int64_t>(value)) {}       // NOLINT
  Value(unsigned long long value) : variant_(static_cast<std::int64_t>(value)) {}  // NOLINT
  Value(double value) : variant_(value) {}                         // NOLINT(*-explicit-*)
  Value(const char* value) : variant_(std::string(value)) {}       // NOLINT(*-explicit-*)
  Value(std::string_view value) : variant_(std::string(value)) {}  // NOLINT(*-explicit-*)
  Value(std::string value) : variant_(std::move(value)) {}         // NOLINT(*-explicit-*)
  Value(Bytes value) : variant_(std::move(value)) {}               // NOLINT(*-explicit-*)
  Value(Date value) : variant_(value) {}                           // NOLINT(*-explicit-*)
  Value(Array value) : variant_(std::move(value)) {}               // NOLINT(*-explicit-*)
  Value(Dictionary value) : variant_(std::move(value)) {}          // NOLINT(*-explicit-*)

  const Variant& variant() const { return variant_; }

  /// The value if it is of exactly that kind, else none.
  const std::string* text() const { return std::get_if<std::string>(&variant_); }
  const Bytes* data() const { return std::get_if<Bytes>(&variant_); }
  const Date* date() const { return std::get_if<Date>(&variant_); }
  const Array* array() const { return std::get_if<Array>(&variant_); }
  const Dictionary* dictionary() const { return std::get_if<Dictionary>(&variant_); }

  /// Whether the two conversions below have a meaning for it: a boolean, number or text.
  bool isScalar() const { return variant_.index() <= 3; }

  /// A number is true unless 0. A text is true when, after blanks, a sign and zeros, it begins with
  /// Y, y, T, t or a digit other than 0. Any other kind is false.
  bool boolValue() const;
  /// A number's low 32 bits as signed (a real is truncated); the leading decimal digits of a text
  /// (after blanks, with a sign, held to the 32-bit range), else 0. Any other kind is 0.
  std::int32_t intValue() const;
  /// As intValue, in 64 bits.
  std::int64_t longValue() const;

  friend bool operator==(const Value&, const Value&) = default;

 private:
  Variant variant_;
};

/// The entry under the key, or none.
const Value* find(const Dictionary& dictionary, std::string_view key);
/// The entry's conversion; an absent key reads as false, 0 or none.
bool boolForKey(const Dictionary& dictionary, std::string_view key);
std::int32_t intForKey(const Dictionary& dictionary, std::string_view key);
/// The entry if it is a text. Numbers are not turned into texts.
std::optional<std::string> textForKey(const Dictionary& dictionary, std::string_view key);

/// "boolean", "integer", "real", "text", "data", "date", "array" or "dictionary", for messages.
std::string_view kindName(const Value& value);

}  // namespace wrixel2::platform
