#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/LinuxFileManager.h"
#include "platform/linux/LinuxHealthStore.h"
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
  ASSERT_FALSE(files.writeAtomically(path, bytesOfText("two")));
  EXPECT_EQ(textAt(path), "two");
  EXPECT_EQ(textAt(kept), "one");
  EXPECT_EQ(modeOf(path), 0644U);
  EXPECT_EQ(files.contentsOfDirectoryAtPath(directory.path("new/deep"))->size(), 1U);
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
  struct Case {
    std::string path;
    long code;
  };
  const Case cases[] = {{directory.path("missing"), ENOENT},
                        {directory.path(), EISDIR},
                        {pipe, EINVAL},
                        {file + "/below", ENOTDIR}};
  for (const auto& item : cases) {
    SCOPED_TRACE(item.path);
    const auto contents = files.contentsAtPath(item.path);
    ASSERT_FALSE(contents);
    EXPECT_EQ(contents.error().code, item.code);
    EXPECT_NE(contents.error().localizedDescription.find(item.path), std::string::npos);
    EXPECT_TRUE(files.copyItemAtPath(item.path, directory.path("copy")));
    EXPECT_FALSE(files.fileExistsAtPath(directory.path("copy")));
  }
  EXPECT_TRUE(files.writeAtomically(pipe, {}));
  EXPECT_TRUE(files.writeAtomically(directory.path(), {}));
  EXPECT_TRUE(files.writeAtomically(file + "/below", {}));
  EXPECT_TRUE(files.writeAtomically(directory.path(std::string(300, 'n')), {}));
  EXPECT_EQ(directory.entryCount(), 2U) << "nothing unfinished is left";
}

TEST_F(FilesTest, CopiesNeverReplaceAndKeepTheMode) {
  const std::string source = directory.write("source", std::string(200'000, 'x'));
  ::chmod(source.c_str(), 0640);
  const std::string copy = directory.path("copy");
  ASSERT_FALSE(files.copyItemAtPath(source, copy));
  EXPECT_EQ(textAt(copy), std::string(200'000, 'x'));
  EXPECT_EQ(modeOf(copy), 0640U);
  const auto error = files.copyItemAtPath(directory.write("other", "y"), copy);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, EEXIST);
  EXPECT_EQ(textAt(copy).size(), 200'000U);
}

TEST_F(FilesTest, DirectoriesAreListedAndThingsRemoved) {
  directory.write("a", "");
  directory.write(".b", "");
  auto names = files.contentsOfDirectoryAtPath(directory.path());
  ASSERT_TRUE(names);
  std::sort(names->begin(), names->end());
  EXPECT_EQ(*names, (std::vector<std::string>{".b", "a"}));
  EXPECT_FALSE(files.contentsOfDirectoryAtPath(directory.path("a")));
  EXPECT_FALSE(files.removeItemAtPath(directory.path("a")));
  EXPECT_EQ(files.removeItemAtPath(directory.path("a"))->code, ENOENT);
  EXPECT_FALSE(files.isReadableFileAtPath(directory.path("a")));
  EXPECT_TRUE(files.isReadableFileAtPath(directory.path(".b")));
}

TEST_F(FilesTest, FilesAboveTheLimitAreRefused) {
  const std::string path = directory.write("large", "");
  ASSERT_EQ(::truncate(path.c_str(), 16 << 20), 0);
  EXPECT_TRUE(files.contentsAtPath(path));
  ASSERT_EQ(::truncate(path.c_str(), (16 << 20) + 1), 0);
  EXPECT_EQ(files.contentsAtPath(path).error().code, EFBIG);
}

TEST_F(FilesTest, HealthDataNeedsAPlace) {
  EXPECT_TRUE(LinuxHealthStore(directory.path("a/b/health.sqlite")).isHealthDataAvailable());
  EXPECT_TRUE(LinuxHealthStore(directory.write("h", "")).isHealthDataAvailable());
  EXPECT_FALSE(LinuxHealthStore(directory.path("h/below/health.sqlite")).isHealthDataAvailable());
}

}  // namespace
}  // namespace wrixel2::platform::linux
