#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <signal.h>

#include "platform/linux/BackgroundFileManager.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/WorkerThread.h"
#include "platform/simulated/SimulatedBackgroundWork.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

/// Closed until it is opened: who passes waits for that.
class Gate {
 public:
  void open() {
    const std::lock_guard lock(mutex_);
    isOpen_ = true;
    changed_.notify_all();
  }
  void pass() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return isOpen_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  bool isOpen_ = false;
};

TEST(WorkerThreadTest, WorksInOrderBesideTheLoopWhichHearsOfIt) {
  RecordingLog log;
  LocalTimeZone zone;
  LinuxRunLoop loop(log, zone);
  Gate gate;
  std::vector<std::size_t> done;  // by the thread
  std::vector<std::size_t> told;  // by the loop
  const auto main = std::this_thread::get_id();
  {
    WorkerThread worker(loop);
    const auto job = [&](std::size_t number) {
      return [&, number]() -> Task {
        gate.pass();
        sigset_t blocked;
        ::pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
        EXPECT_TRUE(sigismember(&blocked, SIGTERM)) << "signals are the loop's";
        EXPECT_NE(std::this_thread::get_id(), main);
        done.push_back(number);
        return [&, number] {
          EXPECT_EQ(std::this_thread::get_id(), main);
          told.push_back(number);
        };
      };
    };
    std::size_t taken = 0;
    while (worker.run(job(taken))) {
      ++taken;
    }
    EXPECT_GE(taken, WorkerThread::kMostJobs);
    EXPECT_LE(taken, WorkerThread::kMostJobs + 1);  // and the one that is being done
    gate.open();
    EXPECT_TRUE(loop.runUntil([&] { return told.size() == taken; }, std::chrono::seconds(10)));
    EXPECT_EQ(told, done);
    EXPECT_TRUE(std::ranges::is_sorted(done));
    for (std::size_t number = taken; number < taken + 3; ++number) {
      EXPECT_TRUE(worker.run(job(number)));
    }
    told.clear();
  }
  EXPECT_EQ(done.back(), done.size() - 1) << "what was taken is done before the end";
  EXPECT_TRUE(told.empty()) << "and nobody is told any more";
}

TEST(BackgroundFileManagerTest, WritesTheLastContentsBesideTheLoopAndTriesAgain) {
  RecordingLog log;
  simulated::SimulatedPlatform phone;
  simulated::SimulatedBackgroundWork work(phone.runLoop);
  const TemporaryDirectory directory;
  const std::string path = directory.path("state/apps.plist");
  const auto textAtPath = [&path] {
    const auto contents = LinuxFileManager().contentsAtPath(path);
    return contents ? std::string(contents->begin(), contents->end()) : "none";
  };
  {
    BackgroundFileManager files(work, log);
    const auto write = [&](const std::string& text) {
      EXPECT_EQ(files.writeAtomically(path, bytesOfText(text)), std::nullopt);
    };
    work.setIsSlow(true);
    write("one");
    write("two");
    write("three");
    EXPECT_EQ(textAtPath(), "none");
    EXPECT_EQ(work.jobsDone(), 0U);
    work.setIsSlow(false);
    phone.runLoop.runUntilIdle();
    EXPECT_EQ(textAtPath(), "three");
    EXPECT_EQ(work.jobsDone(), 2U) << "what was overtaken is not written";

    std::filesystem::remove_all(directory.path("state"));
    directory.write("state", "in the way");
    for (const char* text : {"four", "five"}) {
      write(text);
      phone.runLoop.runUntilIdle();
    }
    EXPECT_EQ(log.count("ERROR"), 1U);
    std::filesystem::remove(directory.path("state"));
  }
  EXPECT_EQ(textAtPath(), "five") << "tried again at the end";
  phone.runLoop.runUntilIdle();
}

}  // namespace
}  // namespace wrixel2::platform::linux
