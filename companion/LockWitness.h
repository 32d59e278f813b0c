#pragma once

#include <functional>
#include <optional>
#include <utility>

namespace wrixel2::companion {

/// One program that may know whether the screen is locked.
class LockWitness {
 public:
  LockWitness() = default;
  LockWitness(const LockWitness&) = delete;
  LockWitness& operator=(const LockWitness&) = delete;
  virtual ~LockWitness() = default;

  /// None while the program is not there, or does not say.
  const std::optional<bool>& isLocked() const { return isLocked_; }
  /// Called from then on after each change.
  void onChange(std::function<void()> changed) { changed_ = std::move(changed); }

 protected:
  void say(std::optional<bool> isLocked) {
    if (std::exchange(isLocked_, isLocked) != isLocked && changed_) {
      changed_();
    }
  }

 private:
  std::optional<bool> isLocked_;
  std::function<void()> changed_;
};

}  // namespace wrixel2::companion
