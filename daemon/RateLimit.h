#pragma once

#include <functional>
#include <memory>
#include <utility>

#include "platform/RunLoop.h"

namespace wrixel2::daemon {

/// Work that has the same effect however often it is asked for: done at once, then at most once in
/// each pause, so that asking for it over and over costs nothing.
class RateLimit {
 public:
  /// The loop outlives it.
  RateLimit(platform::RunLoop& loop, platform::TimeInterval pause, std::function<void()> work)
      : loop_(loop), pause_(pause), work_(std::move(work)) {}

  void ask() {
    if (timer_ != nullptr && timer_->isValid()) {
      isDue_ = true;
      return;
    }
    timer_ = loop_.scheduledTimer(pause_, false, [this] {
      if (std::exchange(isDue_, false)) {
        ask();
      }
    });
    work_();
  }

 private:
  platform::RunLoop& loop_;
  platform::TimeInterval pause_;
  std::function<void()> work_;
  std::unique_ptr<platform::Timer> timer_;
  bool isDue_ = false;
};

}  // namespace wrixel2::daemon
