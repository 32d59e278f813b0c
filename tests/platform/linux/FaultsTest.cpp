#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/LinuxClock.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/Process.h"
#include "platform/linux/PropertyListUserDefaults.h"
#include "tests/platform/linux/Limit.h"
#include "tests/platform/linux/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace wrixel2::platform::linux {
namespace {

/// Files as somebody who is not root meets them, until the end of the scope.
class OrdinaryUser {
 public:
  OrdinaryUser() : isChanged_(::geteuid() == 0 && ::seteuid(65'534) == 0) {}
  OrdinaryUser(const OrdinaryUser&) = delete;
  OrdinaryUser& operator=(const OrdinaryUser&) = delete;
  ~OrdinaryUser() {
    if (isChanged_) {
      [[maybe_unused]] const int result = ::seteuid(0);
    }
  }

 private:
  const bool isChanged_;
};

class FaultsTest : public testing::Test {
 protected:
  /// Everything that the system writes, on files that hold something already; what each says.
  void writeAll(int expectedCode) {
    const std::string large(200'000, 'x');
    for (const auto& error :
         {files.writeAtomically(lock, bytesOfText(large)),
          lists.writeToFileAtomically(directory.path("defaults"), {{"text", large}})}) {
      ASSERT_TRUE(error);
      EXPECT_EQ(error->code, expectedCode);
    }
    defaults.setObjectForKey("text", large);
    defaults.synchronize();
    EXPECT_EQ(log.count("WARN The user defaults are not written"), 1U);
    ASSERT_TRUE(files.copyItemAtPath(source, directory.path("copy")));
  }
  void expectAsBefore() {
    EXPECT_EQ(files.contentsAtPath(lock).value(), bytesOfText("lock"));
    EXPECT_EQ(*lists.dictionaryWithContentsOfFile(directory.path("defaults")),
              (Dictionary{{"a", 1}}));
    EXPECT_EQ(directory.entryCount(), 3U) << "nothing unfinished is left";
    // What could not be written is not forgotten.
    defaults.synchronize();
    EXPECT_EQ(log.count("WARN The user defaults are not written"), 1U);
    EXPECT_EQ(lists.dictionaryWithContentsOfFile(directory.path("defaults"))->size(), 2U);
  }

  TemporaryDirectory directory;
  RecordingLog log;
  LinuxFileManager files;
  LinuxPropertyLists lists{files};
  std::string lock = directory.write("lock", "lock");
  std::string source = directory.write("source", std::string(200'000, 'y'));
  ErrorOrNone made = lists.writeToFileAtomically(directory.path("defaults"), {{"a", 1}});
  PropertyListUserDefaults defaults{lists, files, log, directory.path("defaults")};
};

TEST_F(FaultsTest, AWriteThatEndsInTheMiddleLeavesTheOldFiles) {
  {
    const Limit small(RLIMIT_FSIZE, 100'000);
    writeAll(EFBIG);
  }
  expectAsBefore();
}

TEST_F(FaultsTest, ADirectoryThatMayNotBeWrittenLeavesTheOldFiles) {
  ::chmod(directory.path().c_str(), 0555);
  {
    const OrdinaryUser user;
    writeAll(EACCES);
  }
  ::chmod(directory.path().c_str(), 0755);
  expectAsBefore();

  ::chmod(lock.c_str(), 0000);
  {
    const OrdinaryUser user;
    EXPECT_EQ(files.contentsAtPath(lock).error().code, EACCES);
  }
}

TEST_F(FaultsTest, WithoutDescriptorsFilesAreErrorsAndTimersGoOn) {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  GTEST_SKIP() << "The sanitizers' own checks need descriptors";
#endif
  LocalTimeZone zone{directory.path("none")};
  LinuxRunLoop loop{log, zone};
  LinuxClock clock;
  int fired = 0;
  {
    const Limit none(RLIMIT_NOFILE, 0);
    writeAll(EMFILE);
    EXPECT_EQ(files.contentsAtPath(lock).error().code, EMFILE);
    EXPECT_EQ(files.contentsOfDirectoryAtPath(directory.path()).error().code, EMFILE);
    const auto count = [&fired] { ++fired; };
    const auto repeated = loop.scheduledTimer(TimeInterval(0), false, count);
    const auto persistent = loop.persistentTimer(TimeInterval(0), "test", count);
    const auto dated = loop.persistentTimer(clock.now(), "test", count);
    loop.post(count);
    EXPECT_TRUE(loop.runUntil([&fired] { return fired == 4; }, std::chrono::seconds(10)));
  }
  expectAsBefore();
}

TEST_F(FaultsTest, WithoutMemoryOrDescriptorsTheProcessSaysSoAndEnds) {
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  GTEST_SKIP() << "The sanitizers have an allocator of their own, and need descriptors";
#endif
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        beginProcess("program");
        const Limit little(RLIMIT_AS, 0);
        Bytes(std::size_t{64} << 20);
      },
      testing::ExitedWithCode(1), "^program: out of memory\n$");
  EXPECT_EXIT(
      {
        beginProcess("program");
        LocalTimeZone zone{directory.path("none")};
        const Limit none(RLIMIT_NOFILE, 0);
        const LinuxRunLoop loop(log, zone);
      },
      testing::ExitedWithCode(1), "^program: No event loop can be made: Too many open files\n$");
}

}  // namespace
}  // namespace wrixel2::platform::linux
