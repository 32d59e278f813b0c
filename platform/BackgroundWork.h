#pragma once

#include "platform/RunLoop.h"
#include "platform/UniqueFunction.h"

namespace wrixel2::platform {

/// Work that may have to wait, for a disk say, and is done in order beside the loop.
class BackgroundWork {
 public:
  /// Owns all that it uses. What it returns is called by the loop in a later turn; a program that
  /// ends before drops it.
  using Job = UniqueFunction<Task()>;

  virtual ~BackgroundWork() = default;
  /// False, with the job dropped, where too many wait already. A job that was taken is done even if
  /// the program is about to end.
  virtual bool run(Job job) = 0;
};

}  // namespace wrixel2::platform
