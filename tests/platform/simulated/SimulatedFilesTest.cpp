#include <cerrno>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "platform/simulated/SimulatedFileManager.h"
#include "platform/simulated/SimulatedPropertyLists.h"
#include "platform/simulated/SimulatedUserDefaults.h"

namespace wrixel2::platform::simulated {
namespace {

TEST(SimulatedFileManagerTest, DirectoriesListTheirEntriesInTheOrderOfMaking) {
  SimulatedFileManager files;
  files.addFile("/a/z.plist", "1");
  files.addFile("/a/b/deep.plist", "2");
  files.addFile("/a/m.plist", "3");
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/a"),
            (std::vector<std::string>{"z.plist", "b", "m.plist"}));
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/a/"), *files.contentsOfDirectoryAtPath("/a"));
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/"), std::vector<std::string>{"a"});

  EXPECT_EQ(files.removeItemAtPath("/a/b"), std::nullopt);
  EXPECT_FALSE(files.fileExistsAtPath("/a/b/deep.plist"));
  EXPECT_EQ(*files.contentsOfDirectoryAtPath("/a"),
            (std::vector<std::string>{"z.plist", "m.plist"}));
}

TEST(SimulatedFileManagerTest, FailuresCarryTheNumberOfTheirCause) {
  SimulatedFileManager files;
  files.addFile("/d/file", "text");
  files.addFile("/d/secret", "text");
  files.setIsReadable("/d/secret", false);
  files.setWriteError("/d/full", ENOSPC);

  EXPECT_TRUE(files.fileExistsAtPath("/d/secret"));
  EXPECT_FALSE(files.isReadableFileAtPath("/d/secret"));
  EXPECT_FALSE(files.isReadableFileAtPath("/d/none"));
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

TEST(SimulatedPropertyListsTest, APropertyListIsAsGoodAsItsFile) {
  SimulatedFileManager files;
  SimulatedPropertyLists lists(files);
  const Dictionary dictionary{{"key", "value"}};
  ASSERT_EQ(lists.writeToFileAtomically("/p.plist", dictionary), std::nullopt);
  ASSERT_EQ(files.copyItemAtPath("/p.plist", "/p.bak"), std::nullopt);
  ASSERT_EQ(lists.writeToFileAtomically("/p.plist", {}), std::nullopt);
  EXPECT_EQ(lists.dictionary("/p.bak"), dictionary);
  EXPECT_EQ(lists.dictionary("/p.plist"), Dictionary{});

  files.addFile("/p.bak", "something else");
  EXPECT_EQ(lists.dictionaryWithContentsOfFile("/p.bak").error().code, EINVAL);
  EXPECT_EQ(lists.dictionaryWithContentsOfFile("/none").error().code, ENOENT);
  files.setWriteError("/p.plist", EROFS);
  EXPECT_EQ(lists.writeToFileAtomically("/p.plist", dictionary)->code, EROFS);
}

TEST(SimulatedUserDefaultsTest, OnlyWhatWasSynchronizedWouldSurviveACrash) {
  SimulatedUserDefaults defaults;
  defaults.setObjectForKey("list", Array{"a"});
  EXPECT_EQ(defaults.arrayForKey("list"), Array{"a"});
  EXPECT_TRUE(defaults.synchronizedValues().empty());
  defaults.synchronize();
  EXPECT_EQ(defaults.synchronizedValues().size(), 1U);
}

}  // namespace
}  // namespace wrixel2::platform::simulated
