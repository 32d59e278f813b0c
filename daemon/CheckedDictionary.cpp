#include "daemon/CheckedDictionary.h"

#include <fmt/format.h>

#include "platform/Utf8.h"

namespace wrixel2::daemon {

std::optional<bool> CheckedDictionary::boolean(std::string_view key) const {
  const auto* value = scalar(key);
  return value != nullptr ? std::optional(value->boolValue()) : std::nullopt;
}

std::optional<std::int32_t> CheckedDictionary::integer(std::string_view key) const {
  const auto* value = scalar(key);
  return value != nullptr ? std::optional(value->intValue()) : std::nullopt;
}

std::optional<std::int64_t> CheckedDictionary::longInteger(std::string_view key) const {
  const auto* value = scalar(key);
  return value != nullptr ? std::optional(value->longValue()) : std::nullopt;
}

std::optional<std::string> CheckedDictionary::displayedText(std::string_view key) const {
  const auto* value = scalar(key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (const auto* number = std::get_if<double>(&value->variant())) {
    return fmt::format("{}", *number);
  }
  return value->text() != nullptr ? *value->text() : fmt::format("{}", value->longValue());
}

std::optional<std::string> CheckedDictionary::text(std::string_view key) const {
  return text(key, platform::kLongestText);
}

std::optional<std::string> CheckedDictionary::identifier(std::string_view key) const {
  return text(key, platform::kLongestIdentifier);
}

std::optional<std::string> CheckedDictionary::text(std::string_view key,
                                                   std::size_t longest) const {
  const auto* value = platform::find(*entries_, key);
  if (value == nullptr) {
    return std::nullopt;
  }
  if (value->text() == nullptr) {
    warn(key, *value, "a text");
    return std::nullopt;
  }
  return std::string(platform::utf8Prefix(*value->text(), longest));
}

const platform::Value* CheckedDictionary::scalar(std::string_view key) const {
  const auto* value = platform::find(*entries_, key);
  if (value != nullptr && !value->isScalar()) {
    warn(key, *value, "a boolean, number or text");
    return nullptr;
  }
  return value;
}

void CheckedDictionary::warn(std::string_view key, const platform::Value& value,
                             std::string_view expected) const {
  logger_->byFile().warning(fmt::format("Ignoring {} entry \"{}\": it is of kind {}, not {}",
                                        source_, key, platform::kindName(value), expected));
}

}  // namespace wrixel2::daemon
