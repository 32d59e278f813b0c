#include "platform/linux/WorkerThread.h"

#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>
#include <vector>

#include <pthread.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::platform::linux {

struct WorkerThread::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::deque<Job> jobs;
  std::vector<Task> done;
  bool isBusy = false;
  bool isEnding = false;
  FileDescriptor doneEvent{::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

WorkerThread::WorkerThread(LinuxRunLoop& loop) : loop_(loop), shared_(std::make_unique<Shared>()) {}

WorkerThread::~WorkerThread() {
  sd_event_source_disable_unref(doneSource_);
  if (!thread_) {
    return;
  }
  std::unique_lock lock(shared_->mutex);
  shared_->isEnding = true;
  shared_->changed.notify_all();
  const bool isDone = shared_->changed.wait_for(
      lock, kLongestEnd, [this] { return shared_->jobs.empty() && !shared_->isBusy; });
  lock.unlock();
  if (isDone) {
    ::pthread_join(*thread_, nullptr);
  } else {
    // It goes on for as long as the process does, with what it uses.
    ::pthread_detach(*thread_);
    static_cast<void>(shared_.release());
  }
}

bool WorkerThread::run(Job job) {
  if (!thread_ && !startThread()) {
    // Slowly, then, but not lost.
    loop_.post(job());
    return true;
  }
  const std::lock_guard lock(shared_->mutex);
  if (shared_->jobs.size() >= kMostJobs) {
    return false;
  }
  shared_->jobs.push_back(std::move(job));
  shared_->changed.notify_all();
  return true;
}

bool WorkerThread::startThread() {
  if (doneSource_ == nullptr &&
      (!shared_->doneEvent || sd_event_add_io(loop_.event(), &doneSource_, shared_->doneEvent.get(),
                                              EPOLLIN, &WorkerThread::onDone, this) < 0)) {
    return false;
  }
  sigset_t all;
  sigset_t before;
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  pthread_t thread{};
  if (::pthread_create(&thread, nullptr, &WorkerThread::work, shared_.get()) == 0) {
    thread_ = thread;
  }
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread_.has_value();
}

void* WorkerThread::work(void* userdata) {
  Shared& shared = *static_cast<Shared*>(userdata);
  std::unique_lock lock(shared.mutex);
  while (true) {
    shared.changed.wait(lock, [&shared] { return shared.isEnding || !shared.jobs.empty(); });
    if (shared.jobs.empty()) {
      return nullptr;
    }
    Job job = std::move(shared.jobs.front());
    shared.jobs.pop_front();
    shared.isBusy = true;
    lock.unlock();
    Task done = job();
    job = nullptr;
    lock.lock();
    shared.isBusy = false;
    shared.done.push_back(std::move(done));
    shared.changed.notify_all();
    ::eventfd_write(shared.doneEvent.get(), 1);
  }
}

int WorkerThread::onDone(sd_event_source* /*source*/, int file, std::uint32_t /*events*/,
                         void* userdata) {
  Shared& shared = *static_cast<WorkerThread*>(userdata)->shared_;
  eventfd_t count = 0;
  ::eventfd_read(file, &count);
  std::unique_lock lock(shared.mutex);
  const auto done = std::exchange(shared.done, {});
  lock.unlock();
  for (const Task& task : done) {
    task();
  }
  return 0;
}

}  // namespace wrixel2::platform::linux
