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
      : closure_(new Closure<std::remove_cvref_t<Callable>>(std::forward<Callable>(callable))) {}

  explicit operator bool() const { return closure_ != nullptr; }

  Result operator()(Arguments... arguments) const {
    return closure_->call(*closure_, std::forward<Arguments>(arguments)...);
  }

 private:
  // Two pointers and no virtual functions: the type of every closure in the program, with its name,
  // would else stand in the program's constants, and be relocated at each start.
  struct Base {
    Result (*call)(Base& closure, Arguments&&... arguments);
    void (*destroy)(Base* closure);
  };

  template <typename Callable>
  struct Closure : Base {
    template <typename Source>
    explicit Closure(Source&& source)
        : Base{callClosure, destroyClosure}, callable(std::forward<Source>(source)) {}

    static Result callClosure(Base& closure, Arguments&&... arguments) {
      return static_cast<Result>(
          static_cast<Closure&>(closure).callable(std::forward<Arguments>(arguments)...));
    }
    static void destroyClosure(Base* closure) { delete static_cast<Closure*>(closure); }

    Callable callable;
  };

  struct Destroy {
    void operator()(Base* closure) const { closure->destroy(closure); }
  };

  std::unique_ptr<Base, Destroy> closure_;
};

}  // namespace wrixel2::platform
