#include "platform/RunLoop.h"

#include <utility>

namespace wrixel2::platform {

void Queue::async(Task task) const { loop_->post(std::move(task)); }

void Queue::after(TimeInterval delay, Task task) const {
  if (delay <= TimeInterval::zero()) {
    loop_->post(std::move(task));
  } else {
    loop_->postAfter(delay, std::move(task));
  }
}

}  // namespace wrixel2::platform
