#pragma once

#include <functional>
#include <utility>

namespace wrixel2::companion {

/// Where the phone says whether its owner wants to be left alone. Until it says anything, its owner
/// can be disturbed.
class DoNotDisturbSource {
 public:
  DoNotDisturbSource() = default;
  DoNotDisturbSource(const DoNotDisturbSource&) = delete;
  DoNotDisturbSource& operator=(const DoNotDisturbSource&) = delete;
  virtual ~DoNotDisturbSource() = default;

  bool isActive() const { return isActive_; }
  /// Called from then on after each change.
  void onChange(std::function<void()> changed) { changed_ = std::move(changed); }

 protected:
  void setActive(bool isActive) {
    if (std::exchange(isActive_, isActive) != isActive && changed_) {
      changed_();
    }
  }

 private:
  bool isActive_ = false;
  std::function<void()> changed_;
};

}  // namespace wrixel2::companion
