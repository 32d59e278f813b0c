#pragma once

#include <atomic>
#include <thread>
#include <vector>

namespace wrixel2::bench {

/// Keeps every processor busy with work that anything else displaces, for as long as this lives. A
/// processor that halts between two messages is woken through the hypervisor, and its clock rate
/// follows the load: the same code then takes twice the time in one run and not in the next.
class AwakeProcessors {
 public:
  AwakeProcessors();
  AwakeProcessors(const AwakeProcessors&) = delete;
  AwakeProcessors& operator=(const AwakeProcessors&) = delete;
  ~AwakeProcessors();

 private:
  std::atomic<bool> isOver_ = false;
  std::vector<std::thread> spinners_;
};

}  // namespace wrixel2::bench
