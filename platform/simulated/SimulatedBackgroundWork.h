#pragma once

#include <utility>
#include <vector>

#include "platform/BackgroundWork.h"

namespace wrixel2::platform::simulated {

/// Does each job at once, and what follows from it in a later turn of the loop.
class SimulatedBackgroundWork final : public BackgroundWork {
 public:
  explicit SimulatedBackgroundWork(RunLoop& loop) : loop_(loop) {}

  bool run(Job job) override {
    if (isFull_) {
      return false;
    }
    waiting_.push_back(std::move(job));
    setIsSlow(isSlow_);
    return true;
  }

  /// While it is slow, jobs wait; then they are done, in order.
  void setIsSlow(bool isSlow) {
    isSlow_ = isSlow;
    if (!isSlow) {
      for (const Job& job : std::exchange(waiting_, {})) {
        ++jobsDone_;
        loop_.post(job());
      }
    }
  }
  std::size_t jobsDone() const { return jobsDone_; }
  void setIsFull(bool isFull) { isFull_ = isFull; }

 private:
  RunLoop& loop_;
  std::vector<Job> waiting_;
  std::size_t jobsDone_ = 0;
  bool isSlow_ = false;
  bool isFull_ = false;
};

}  // namespace wrixel2::platform::simulated
