#pragma once

namespace wrixel2::companion {

/// What the owner can do about the calls that ring. Without one, nothing happens.
class CallControl {
 public:
  virtual ~CallControl() = default;
  /// They go on without a sound, and the band keeps still.
  virtual void silence() = 0;
  /// They are rejected.
  virtual void hangUp() = 0;
};

}  // namespace wrixel2::companion
