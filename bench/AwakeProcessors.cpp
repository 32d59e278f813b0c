#include "bench/AwakeProcessors.h"

#include <pthread.h>
#include <sched.h>

namespace wrixel2::bench {
namespace {

void spin(const std::atomic<bool>& isOver, unsigned processor) {
  const sched_param lowest{};
  ::sched_setscheduler(0, SCHED_IDLE, &lowest);
  cpu_set_t own;
  CPU_ZERO(&own);
  CPU_SET(processor, &own);
  ::pthread_setaffinity_np(::pthread_self(), sizeof own, &own);
  while (!isOver.load(std::memory_order_relaxed)) {
  }
}

}  // namespace

AwakeProcessors::AwakeProcessors() {
  for (unsigned processor = 0; processor < std::thread::hardware_concurrency(); ++processor) {
    spinners_.emplace_back([this, processor] { spin(isOver_, processor); });
  }
}

AwakeProcessors::~AwakeProcessors() {
  isOver_ = true;
  for (auto& spinner : spinners_) {
    spinner.join();
  }
}

}  // namespace wrixel2::bench
