#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Log.h"
#include "platform/Value.h"

namespace wrixel2::daemon {

/// Reads a dictionary that another program sent. An entry of a kind that the reader cannot use is a
/// warning that names the key, and reads as absent. Lives no longer than the dictionary.
class CheckedDictionary {
 public:
  /// The source says in the warnings where the entry came from: "setting", "message DND".
  CheckedDictionary(const platform::Dictionary& entries, std::string_view source,
                    const platform::Logger& logger)
      : entries_(&entries), source_(source), logger_(&logger) {}

  bool contains(std::string_view key) const { return entries_->contains(key); }
  /// Booleans, numbers and texts convert; see platform::Value.
  std::optional<bool> boolean(std::string_view key) const;
  std::optional<std::int32_t> integer(std::string_view key) const;
  std::optional<std::int64_t> longInteger(std::string_view key) const;
  /// Any boolean, number or text, as it is shown to people.
  std::optional<std::string> displayedText(std::string_view key) const;
  /// Texts only, cut to platform::kLongestText or, of what tells things apart, kLongestIdentifier.
  std::optional<std::string> text(std::string_view key) const;
  std::optional<std::string> identifier(std::string_view key) const;

 private:
  std::optional<std::string> text(std::string_view key, std::size_t longest) const;
  const platform::Value* scalar(std::string_view key) const;
  void warn(std::string_view key, const platform::Value& value, std::string_view expected) const;

  const platform::Dictionary* entries_;
  std::string_view source_;
  const platform::Logger* logger_;
};

}  // namespace wrixel2::daemon
