#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/UserDefaults.h"

namespace wrixel2::platform::simulated {

/// User defaults in memory.
class SimulatedUserDefaults final : public UserDefaults {
 public:
  std::optional<Value> objectForKey(std::string_view key) const override {
    const Value* const value = find(values_, key);
    return value == nullptr ? std::nullopt : std::optional<Value>(*value);
  }
  void setObjectForKey(std::string_view key, Value value) override {
    values_.insert_or_assign(std::string(key), std::move(value));
  }
  void synchronize() override { synchronized_ = values_; }

  /// What would be there after a crash now.
  const Dictionary& synchronizedValues() const { return synchronized_; }

 private:
  Dictionary values_;
  Dictionary synchronized_;
};

}  // namespace wrixel2::platform::simulated
