#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace wrixel2::platform {

template <typename Signature>
class UniqueFunction;

/// A callable that is moved, never copied, so that it can own what it captures.
///
/// Calling an empty one is a programming error; test it with the boolean conversion where it is
/// optional. Closures always live on the heap: they are few, and the object stays one pointer wide.
template <typename Result, typename... Arguments>
class UniqueFunction<Result(Arguments...)> {
 public:
  UniqueFunction() = default;
  UniqueFunction(std::nullptr_t) {}  // NOLINT(google-explicit-constructor): reads as "no callback"

  template <typename Callable>
    requires(!std::is_same_v<std::remove_cvref_t<Callable>, UniqueFunction> &&
             std::is_invocable_r_v<Result, std::remove_cvref_t<Callable>&, Arguments...>)
  UniqueFunction(Callable&& callable)  // NOLINT(google-explicit-constructor): as std::function
      : closure_(std::make_unique<Closure<std::remove_cvref_t<Callable>>>(
            std::forward<Callable>(callable))) {}

  explicit operator bool() const { return closure_ != nullptr; }

  Result operator()(Arguments... arguments) const {
    return closure_->call(std::forward<Arguments>(arguments)...);
  }

 private:
  struct Base {
    Base() = default;
    Base(const Base&) = delete;
    Base& operator=(const Base&) = delete;
    virtual ~Base() = default;
    virtual Result call(Arguments&&... arguments) = 0;
  };

  template <typename Callable>
  struct Closure final : Base {
    template <typename Source>
    explicit Closure(Source&& source) : callable(std::forward<Source>(source)) {}
    Result call(Arguments&&... arguments) override {
      return static_cast<Result>(callable(std::forward<Arguments>(arguments)...));
    }
    Callable callable;
  };

  std::unique_ptr<Base> closure_;
};

}  // namespace wrixel2::platform
