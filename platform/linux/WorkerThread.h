#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>

#include <pthread.h>
#include <systemd/sd-event.h>

#include "platform/BackgroundWork.h"

namespace wrixel2::platform::linux {

class LinuxRunLoop;

/// Background work on a thread of its own, which is made for the first job. Signals are the loop's.
///
/// The destructor waits until what was taken is done, but no longer than kLongestEnd: a disk that
/// does not answer does not keep the program from ending.
class WorkerThread final : public BackgroundWork {
 public:
  static constexpr std::size_t kMostJobs = 64;
  static constexpr std::chrono::seconds kLongestEnd{5};

  /// The loop outlives it.
  explicit WorkerThread(LinuxRunLoop& loop);
  WorkerThread(const WorkerThread&) = delete;
  WorkerThread& operator=(const WorkerThread&) = delete;
  ~WorkerThread() override;

  bool run(Job job) override;

 private:
  /// What both threads use, and nothing else of the program's.
  struct Shared;

  static void* work(void* userdata);
  static int onDone(sd_event_source* source, int file, std::uint32_t events, void* userdata);
  bool startThread();

  LinuxRunLoop& loop_;
  std::unique_ptr<Shared> shared_;
  sd_event_source* doneSource_ = nullptr;
  std::optional<pthread_t> thread_;
};

}  // namespace wrixel2::platform::linux
