#include <cerrno>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "daemon/InfoPlistPatch.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::daemon {
namespace {

using platform::Dictionary;

/// With these descriptions; an empty one is not there.
Dictionary plist(const std::string& update, const std::string& share) {
  Dictionary result{{"CFBundleName", "Shell"}};
  if (!update.empty()) {
    result.emplace("NSHealthUpdateUsageDescription", update);
  }
  if (!share.empty()) {
    result.emplace("NSHealthShareUsageDescription", share);
  }
  return result;
}

enum class Fault { none, unreadable, damaged, noBackup, readOnly };

TEST(InfoPlistPatchTest, BacksTheFileUpOnceAndAddsBothDescriptions) {
  using enum Fault;
  const std::string kPath = "/System/Library/CoreServices/SpringBoard.app/Info.plist";
  const std::string kBackup = kPath + ".WX2bak";
  const char* const kBackedUp = "INFO Info.plist successfully backed up";
  const char* const kNotBackedUp = "INFO Info.plist doesn't exist or already backed up";
  const char* const kNoBackup = "ERROR Failed to backup the Info.plist, ";
  const char* const kNotLoaded = "InfoPlistPatch ERROR Info.plist could not be loaded";
  const char* const kNotWritten = "ERROR Info.plist file not written: ";
  const char* const kAdded = "INFO Health keys added to: ";
  const auto kFresh = plist("", "");
  const auto kOne = plist("mine", "");
  const auto kOther = plist("", "mine");
  const auto kBoth = plist("mine", "mine");
  const auto kPatched = plist("Needed for Wrixel2", "Needed for Wrixel2");
  const Dictionary kOld{{"old", true}};
  using File = std::optional<Dictionary>;
  const struct {
    const char* what;
    Fault fault;
    File plist;
    File backup;
    std::vector<std::string> lines;  ///< each the beginning of one
    File plistAfter;
    File backupAfter;
  } kCases[] = {
      {"fresh", none, kFresh, {}, {kBackedUp, kAdded}, kPatched, kFresh},
      {"backed up already", none, kFresh, kOld, {kNotBackedUp, kAdded}, kPatched, kOld},
      {"one there, overwritten too", none, kOne, {}, {kBackedUp, kAdded}, kPatched, kOne},
      {"only the other there", none, kOther, {}, {kBackedUp, kAdded}, kPatched, kOther},
      {"both there, not written", readOnly, kBoth, {}, {kBackedUp}, kBoth, kBoth},
      {"missing", none, {}, {}, {kNotBackedUp, kNotLoaded}, {}, {}},
      {"unreadable", unreadable, kFresh, {}, {kNotBackedUp, kNotLoaded}, {}, {}},
      {"damaged", damaged, {}, {}, {kBackedUp, kNotLoaded}, {}, {}},
      {"cannot be backed up", noBackup, kFresh, {}, {kNoBackup}, kFresh, {}},
      {"cannot be written", readOnly, kFresh, {}, {kBackedUp, kNotWritten}, kFresh, kFresh},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    platform::simulated::SimulatedPlatform system;
    if (c.plist) {
      system.propertyLists.setDictionary(kPath, *c.plist);
    }
    if (c.backup) {
      system.propertyLists.setDictionary(kBackup, *c.backup);
    }
    if (c.fault == damaged) {
      system.fileManager.addFile(kPath, "<plist");
    } else if (c.fault == unreadable) {
      system.fileManager.setIsReadable(kPath, false);
    } else if (c.fault != none) {
      system.fileManager.setWriteError(c.fault == readOnly ? kPath : kBackup, EACCES);
    }
    patchInfoPlist(system.handle(), platform::Logger(system.log, "main"));

    ASSERT_EQ(system.log.lines().size(), c.lines.size());
    for (std::size_t i = 0; i < c.lines.size(); ++i) {
      const auto& line = system.log.lines()[i];
      const auto text = (line.module == "main" ? "" : line.module + " ") +
                        std::string(levelWord(line.level)) + " " + line.message;
      EXPECT_TRUE(text.starts_with(c.lines[i])) << text;
    }
    EXPECT_EQ(system.propertyLists.dictionary(kPath), c.plistAfter);
    EXPECT_EQ(system.propertyLists.dictionary(kBackup), c.backupAfter);
  }
}

}  // namespace
}  // namespace wrixel2::daemon
