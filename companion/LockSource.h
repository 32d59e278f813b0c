#pragma once

namespace wrixel2::companion {

/// Where the phone says whether its screen is locked.
class LockSource {
 public:
  virtual ~LockSource() = default;
  virtual bool isLocked() const = 0;
};

/// A phone that does not say counts as unlocked: locked, the daemon would never start its service.
class NoLockSource final : public LockSource {
 public:
  bool isLocked() const override { return false; }
};

}  // namespace wrixel2::companion
