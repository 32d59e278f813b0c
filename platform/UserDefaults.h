#pragma once

#include <optional>
#include <string_view>

#include "platform/Value.h"

namespace wrixel2::platform {

/// Small values that the program keeps for itself from run to run.
class UserDefaults {
 public:
  virtual ~UserDefaults() = default;
  virtual std::optional<Value> objectForKey(std::string_view key) const = 0;
  /// The entry if it is an array, else none.
  std::optional<Array> arrayForKey(std::string_view key) const {
    const auto value = objectForKey(key);
    if (!value || value->array() == nullptr) {
      return std::nullopt;
    }
    return *value->array();
  }
  virtual void setObjectForKey(std::string_view key, Value value) = 0;
  /// Writes what was set; the backend logs a failure.
  virtual void synchronize() = 0;
};

}  // namespace wrixel2::platform
