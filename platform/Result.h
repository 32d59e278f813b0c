#pragma once

#include <utility>
#include <variant>

#include "platform/Error.h"

namespace wrixel2::platform {

/// A value, or the error that stands in its place.
template <typename T>
class [[nodiscard]] Result {
 public:
  Result(T value) : state_(std::move(value)) {}      // NOLINT(google-explicit-constructor)
  Result(Error error) : state_(std::move(error)) {}  // NOLINT(google-explicit-constructor)

  explicit operator bool() const { return std::holds_alternative<T>(state_); }

  /// Only where the result holds a value.
  T& value() { return *std::get_if<T>(&state_); }
  const T& value() const { return *std::get_if<T>(&state_); }
  T& operator*() { return value(); }
  const T& operator*() const { return value(); }
  T* operator->() { return &value(); }
  const T* operator->() const { return &value(); }

  /// Only where the result holds an error.
  const Error& error() const { return *std::get_if<Error>(&state_); }

 private:
  std::variant<T, Error> state_;
};

}  // namespace wrixel2::platform
