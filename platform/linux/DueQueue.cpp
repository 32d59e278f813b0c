#include "platform/linux/DueQueue.h"

#include <algorithm>

#include <errno.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include "platform/Error.h"
#include "platform/linux/Process.h"

namespace wrixel2::platform::linux {
namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;

}  // namespace

DueQueue::DueQueue(sd_event* event, Clocks clocks, std::function<void(int)> alarmUnavailable)
    : event_(event), clocks_(clocks), alarmUnavailable_(std::move(alarmUnavailable)) {
  if (const int error = open(plain_, clocks_.plain); error != 0) {
    endProcess(errorFromErrno(error, "No timers can be made").localizedDescription);
  }
}

DueQueue::~DueQueue() {
  sd_event_source_disable_unref(plain_.source);
  sd_event_source_disable_unref(alarm_.source);
  for (auto& [key, entry] : pending_) {
    entry->isPending = false;
  }
}

std::int64_t DueQueue::now() const {
  timespec now{};
  ::clock_gettime(clocks_.plain, &now);
  return now.tv_sec * kMicrosecondsPerSecond + now.tv_nsec / 1000;
}

void DueQueue::add(const std::shared_ptr<DueEntry>& entry) {
  entry->sequence = nextSequence_++;
  entry->isPending = true;
  pending_.emplace(std::pair(entry->due, entry->sequence), entry);
  armAll();
}

void DueQueue::remove(DueEntry& entry) {
  if (entry.isPending) {
    entry.isPending = false;
    // What the entry's callback owns may own further timers: they are removed after this one.
    const auto node = pending_.extract({entry.due, entry.sequence});
    armAll();
  }
}

void DueQueue::reschedule(const std::function<std::int64_t(DueEntry&)>& dueOf) {
  decltype(pending_) rescheduled;
  for (auto& [key, entry] : pending_) {
    entry->due = dueOf(*entry);
    rescheduled.emplace(std::pair(entry->due, entry->sequence), entry);
  }
  pending_ = std::move(rescheduled);
  armAll();
}

void DueQueue::armAll() {
  arm(plain_, clocks_.plain, pending_.empty() ? -1 : pending_.begin()->first.first);
  if (alarmFailed_) {
    return;
  }
  const auto waking = std::find_if(pending_.begin(), pending_.end(),
                                   [](const auto& item) { return item.second->wakes; });
  const int error = arm(alarm_, clocks_.alarm, waking == pending_.end() ? -1 : waking->first.first);
  if (error != 0) {
    alarmFailed_ = true;
    alarmUnavailable_(error);
  }
}

int DueQueue::open(Descriptor& descriptor, clockid_t clock) {
  descriptor.file = FileDescriptor(::timerfd_create(clock, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!descriptor.file) {
    return errno;
  }
  const int result = sd_event_add_io(event_, &descriptor.source, descriptor.file.get(), EPOLLIN,
                                     &DueQueue::onReadable, this);
  return result < 0 ? -result : 0;
}

int DueQueue::arm(Descriptor& descriptor, clockid_t clock, std::int64_t due) {
  if (due == descriptor.armedFor) {
    return 0;
  }
  if (!descriptor.file) {
    if (const int error = open(descriptor, clock); error != 0) {
      return error;
    }
  }
  itimerspec time{};  // all zeros disarms
  if (due >= 0) {
    time.it_value.tv_sec = due / kMicrosecondsPerSecond;
    time.it_value.tv_nsec = std::max<long>(due % kMicrosecondsPerSecond * 1000, 1);
  }
  if (::timerfd_settime(descriptor.file.get(), clocks_.armFlags, &time, nullptr) != 0 &&
      errno != ECANCELED) {  // the clock was set a moment ago; the timer is armed all the same
    return errno;
  }
  descriptor.armedFor = due;
  return 0;
}

int DueQueue::onReadable(sd_event_source* /*source*/, int file, std::uint32_t /*events*/,
                         void* userdata) {
  auto* queue = static_cast<DueQueue*>(userdata);
  std::uint64_t expirations = 0;
  // Fails with ECANCELED when the wall clock was set: what is due now is due by the new time.
  [[maybe_unused]] const auto size = ::read(file, &expirations, sizeof expirations);
  auto& descriptor = file == queue->plain_.file.get() ? queue->plain_ : queue->alarm_;
  descriptor.armedFor = -1;
  queue->runFirstDue();
  return 0;
}

void DueQueue::runFirstDue() {
  const std::int64_t limit = now();
  if (pending_.empty() || pending_.begin()->first.first > limit) {
    armAll();
    return;
  }
  const auto entry = pending_.extract(pending_.begin()).mapped();
  entry->isPending = false;
  if (entry->interval > TimeInterval::zero()) {
    // Times that were missed, in sleep for instance, are not made up for.
    const std::int64_t missed = (limit - entry->due) / entry->interval.count();
    entry->due += (missed + 1) * entry->interval.count();
    add(entry);
    entry->callback();
    return;
  }
  // Armed before the call, which may be the end of this queue.
  armAll();
  const Task callback = std::move(entry->callback);
  callback();
}

}  // namespace wrixel2::platform::linux
