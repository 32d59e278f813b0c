#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedFileManager.h"

namespace wrixel2::platform::simulated {
namespace {

TEST(SimulatedFileManagerTest, FailuresCarryTheNumberOfTheirCause) {
  SimulatedFileManager files;
  files.addFile("/d/file", "text");
  files.addFile("/d/secret", "text");
  files.setIsReadable("/d/secret", false);
  files.setWriteError("/d/full", ENOSPC);
  EXPECT_FALSE(files.isReadableFileAtPath("/d/secret"));
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/d/"), (std::vector<std::string>{"file", "secret"}));
  const struct {
    const char* name;
    long code;
    long expected;
  } cases[] = {
      {"reading nothing", files.contentsAtPath("/d/none").error().code, ENOENT},
      {"reading a directory", files.contentsAtPath("/d").error().code, EISDIR},
      {"reading without permission", files.contentsAtPath("/d/secret").error().code, EACCES},
      {"listing nothing", files.contentsOfDirectoryAtPath("/e").error().code, ENOENT},
      {"listing a file", files.contentsOfDirectoryAtPath("/d/file").error().code, ENOTDIR},
      {"writing over a directory", files.writeAtomically("/d", {})->code, EISDIR},
      {"writing to a full disk", files.writeAtomically("/d/full", {})->code, ENOSPC},
      {"copying to a full disk", files.copyItemAtPath("/d/file", "/d/full")->code, ENOSPC},
      {"copying over a file", files.copyItemAtPath("/d/file", "/d/secret")->code, EEXIST},
      {"copying nothing", files.copyItemAtPath("/d/none", "/d/copy")->code, ENOENT},
      {"removing nothing", files.removeItemAtPath("/d/none")->code, ENOENT},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(test.code, test.expected) << test.name;
  }
  EXPECT_EQ(files.copyItemAtPath("/d/file", "/new/copy"), std::nullopt);
  EXPECT_EQ(files.textAtPath("/new/copy"), "text");
}

}  // namespace
}  // namespace wrixel2::platform::simulated
