#pragma once

namespace wrixel2::companion {

/// Keeps the phone from falling asleep right now.
class SleepInhibitor {
 public:
  virtual ~SleepInhibitor() = default;
  /// Nothing more when it is taken.
  virtual void take() = 0;
  virtual void giveBack() = 0;
};

}  // namespace wrixel2::companion
