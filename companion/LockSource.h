#pragma once

#include <functional>
#include <utility>

namespace wrixel2::companion {

/// Where the phone says whether its screen is locked. Until it says anything it counts as unlocked:
/// locked, the daemon would never start its service.
class LockSource {
 public:
  LockSource() = default;
  LockSource(const LockSource&) = delete;
  LockSource& operator=(const LockSource&) = delete;
  virtual ~LockSource() = default;

  bool isLocked() const { return isLocked_; }
  /// Called from then on after each change.
  void onChange(std::function<void()> changed) { changed_ = std::move(changed); }

 protected:
  void setLocked(bool isLocked) {
    if (std::exchange(isLocked_, isLocked) != isLocked && changed_) {
      changed_();
    }
  }

 private:
  bool isLocked_ = false;
  std::function<void()> changed_;
};

}  // namespace wrixel2::companion
