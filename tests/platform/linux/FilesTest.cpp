#include <algorithm>
#include <csignal>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxHealthStore.h"
#include "tests/platform/linux/Limit.h"
#include "tests/platform/linux/Synced.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::platform::linux {
namespace {

class FilesTest : public testing::Test {
 protected:
  std::string textAt(const std::string& path) const {
    const auto contents = files.contentsAtPath(path);
    return contents ? std::string(contents->begin(), contents->end())
                    : contents.error().localizedDescription;
  }
  static mode_t modeOf(const std::string& path) {
    struct stat status{};
    ::lstat(path.c_str(), &status);
    return status.st_mode & 07777;
  }

  TemporaryDirectory directory;
  LinuxFileManager files;
};

TEST_F(FilesTest, AWrittenFileReplacesTheOldOneInOneStep) {
  const std::string path = directory.path("new/deep/file");
  ASSERT_FALSE(files.writeAtomically(path, bytesOfText("one")));
  EXPECT_EQ(textAt(path), "one");
  EXPECT_EQ(modeOf(path), 0600U);
  EXPECT_EQ(modeOf(directory.path("new/deep")), 0700U);

  // Who has the old file open keeps its content: it was not written into.
  const std::string kept = directory.path("kept");
  std::filesystem::create_hard_link(path, kept);
  ::chmod(path.c_str(), 0644);
  syncedPaths().clear();
  ASSERT_FALSE(files.writeAtomically(path, bytesOfText("two")));
  EXPECT_EQ(textAt(path), "two");
  EXPECT_EQ(textAt(kept), "one");
  // The contents are on the disk before they have the name, and the name before it is said.
  ASSERT_GE(syncedPaths().size(), 2U);
  EXPECT_NE((syncedPaths().end() - 2)->find("new/deep/.unfinished-"), std::string::npos);
  EXPECT_EQ(syncedPaths().back(), directory.path("new/deep"));
  EXPECT_EQ(modeOf(path), 0644U);
  EXPECT_EQ(files.contentsOfDirectoryAtPath(directory.path("new/deep"))->size(), 1U);
}

TEST_F(FilesTest, WhatAKillLeavesIsTakenUpByTheNextWrite) {
  const std::string path = directory.write("file", "old");
  GTEST_FLAG_SET(death_test_style, "fast");
  for (int kills = 0; kills < 3; ++kills) {
    EXPECT_EXIT(
        {
          const Limit small(RLIMIT_FSIZE, 100'000);
          std::signal(SIGXFSZ, SIG_DFL);
          [[maybe_unused]] const auto error =
              files.writeAtomically(path, bytesOfText(std::string(200'000, 'x')));
        },
        testing::KilledBySignal(SIGXFSZ), "");
    EXPECT_EQ(directory.entryCount(), 2U);
  }
  EXPECT_EQ(textAt(path), "old");
  ASSERT_FALSE(files.writeAtomically(path, bytesOfText("new")));
  EXPECT_EQ(textAt(path), "new");
  EXPECT_EQ(directory.entryCount(), 1U);

  // Somebody else is at it.
  const std::string unfinished = directory.write(".unfinished-file", "theirs");
  const FileDescriptor theirs(::open(unfinished.c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(theirs.get(), LOCK_EX), 0);
  ASSERT_FALSE(files.writeAtomically(path, bytesOfText("ours")));
  EXPECT_EQ(textAt(path), "ours");
  EXPECT_EQ(textAt(unfinished), "theirs");
}

TEST_F(FilesTest, ALinkStaysAndItsTargetIsReplaced) {
  std::filesystem::create_directory(directory.path("elsewhere"));
  directory.write("elsewhere/target", "old");
  std::filesystem::create_symlink("elsewhere/target", directory.path("link"));
  std::filesystem::create_symlink("elsewhere/missing", directory.path("dangling"));
  std::filesystem::create_symlink("loop", directory.path("loop"));
  ASSERT_FALSE(files.writeAtomically(directory.path("link"), bytesOfText("new")));
  EXPECT_TRUE(std::filesystem::is_symlink(directory.path("link")));
  EXPECT_EQ(textAt(directory.path("elsewhere/target")), "new");
  ASSERT_FALSE(files.writeAtomically(directory.path("dangling"), bytesOfText("made")));
  EXPECT_EQ(textAt(directory.path("elsewhere/missing")), "made");
  EXPECT_TRUE(files.writeAtomically(directory.path("loop"), bytesOfText("x")));
}

TEST_F(FilesTest, WhatIsNoRegularFileIsRefusedWithoutWaiting) {
  const std::string file = directory.write("file", "text");
  const std::string pipe = directory.path("pipe");
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const std::pair<std::string, long> cases[] = {
      {directory.path("missing"), ENOENT},
      {directory.path(), EISDIR},
      {pipe, EINVAL},
      {file + "/below", ENOTDIR},
      {directory.path(std::string(300, 'n')), ENAMETOOLONG}};
  for (const auto& [path, code] : cases) {
    SCOPED_TRACE(path);
    const auto contents = files.contentsAtPath(path);
    ASSERT_FALSE(contents);
    EXPECT_EQ(contents.error().code, code);
    EXPECT_NE(contents.error().localizedDescription.find(path), std::string::npos);
    EXPECT_TRUE(files.copyItemAtPath(path, directory.path("copy")));
    EXPECT_FALSE(files.fileExistsAtPath(directory.path("copy")));
    EXPECT_EQ(files.writeAtomically(path, {}).has_value(), code != ENOENT);
  }
  ASSERT_FALSE(files.removeItemAtPath(directory.path("missing"))) << "it could be written";
  EXPECT_EQ(directory.entryCount(), 2U) << "nothing unfinished is left";
}

TEST_F(FilesTest, CopiesNeverReplaceAndKeepTheMode) {
  const std::string contents(200'000, 'x');
  const std::string source = directory.write("source", contents);
  ::chmod(source.c_str(), 0640);
  const std::string copy = directory.path("copy");
  ASSERT_FALSE(files.copyItemAtPath(source, copy));
  EXPECT_EQ(modeOf(copy), 0640U);
  const auto error = files.copyItemAtPath(directory.write("other", "y"), copy);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EEXIST);
  EXPECT_EQ(textAt(copy), contents);
}

TEST_F(FilesTest, DirectoriesAreListedAndThingsRemoved) {
  directory.write("a", "");
  const std::string hidden = directory.write(".b", "");
  auto names = files.contentsOfDirectoryAtPath(directory.path());
  ASSERT_TRUE(names);
  std::ranges::sort(*names);
  EXPECT_EQ(*names, (std::vector<std::string>{".b", "a"}));
  EXPECT_FALSE(files.contentsOfDirectoryAtPath(directory.path("a")));
  EXPECT_FALSE(files.removeItemAtPath(directory.path("a")));
  EXPECT_EQ(files.removeItemAtPath(directory.path("a"))->code, ENOENT);
  EXPECT_FALSE(files.isReadableFileAtPath(directory.path("a")));
  EXPECT_TRUE(files.isReadableFileAtPath(hidden));

  // Files above the limit are refused.
  ASSERT_EQ(::truncate(hidden.c_str(), 16 << 20), 0);
  EXPECT_TRUE(files.contentsAtPath(hidden));
  ASSERT_EQ(::truncate(hidden.c_str(), (16 << 20) + 1), 0);
  EXPECT_EQ(files.contentsAtPath(hidden).error().code, EFBIG);
}

TEST_F(FilesTest, HealthDataNeedsAPlace) {
  EXPECT_TRUE(LinuxHealthStore(directory.path("a/b/health.sqlite")).isHealthDataAvailable());
  EXPECT_TRUE(LinuxHealthStore(directory.write("h", "")).isHealthDataAvailable());
  EXPECT_FALSE(LinuxHealthStore(directory.path("h/below/health.sqlite")).isHealthDataAvailable());
}

}  // namespace
}  // namespace wrixel2::platform::linux
