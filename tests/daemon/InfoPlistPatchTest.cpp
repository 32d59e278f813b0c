#include <cerrno>
#include <functional>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "daemon/InfoPlistPatch.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::daemon {
namespace {

using platform::Dictionary;
using platform::LogLevel;
using platform::simulated::SimulatedPlatform;

const std::string kPlist = "/System/Library/CoreServices/SpringBoard.app/Info.plist";
const std::string kBackup = kPlist + ".WX2bak";
const std::string kBackedUp = "INFO Info.plist successfully backed up";
const std::string kNotBackedUp = "INFO Info.plist doesn't exist or already backed up";
const std::string kAdded = "INFO Health keys added to: " + kPlist;

Dictionary plist(std::optional<std::string> update, std::optional<std::string> share) {
  Dictionary result{{"CFBundleName", "Shell"}};
  if (update) {
    result.emplace("NSHealthUpdateUsageDescription", *update);
  }
  if (share) {
    result.emplace("NSHealthShareUsageDescription", *share);
  }
  return result;
}

TEST(InfoPlistPatchTest, BacksTheFileUpOnceAndAddsBothDescriptions) {
  const auto kPatched = plist("Needed for Wrixel2", "Needed for Wrixel2");
  const struct {
    const char* what;
    std::function<void(SimulatedPlatform&)> prepare;
    std::vector<std::string> lines;  ///< each the beginning of one
    std::optional<Dictionary> result;
    std::optional<Dictionary> backup;
  } kCases[] = {
      {"fresh",
       [](SimulatedPlatform& s) { s.propertyLists.setDictionary(kPlist, plist({}, {})); },
       {kBackedUp, kAdded},
       kPatched,
       plist({}, {})},
      {"backed up already",
       [](SimulatedPlatform& s) {
         s.propertyLists.setDictionary(kPlist, plist({}, {}));
         s.propertyLists.setDictionary(kBackup, {{"old", true}});
       },
       {kNotBackedUp, kAdded},
       kPatched,
       Dictionary{{"old", true}}},
      {"only one there: both are overwritten",
       [](SimulatedPlatform& s) { s.propertyLists.setDictionary(kPlist, plist("mine", {})); },
       {kBackedUp, kAdded},
       kPatched,
       plist("mine", {})},
      {"only the other there",
       [](SimulatedPlatform& s) { s.propertyLists.setDictionary(kPlist, plist({}, "mine")); },
       {kBackedUp, kAdded},
       kPatched,
       plist({}, "mine")},
      {"both there: nothing is written",
       [](SimulatedPlatform& s) {
         s.propertyLists.setDictionary(kPlist, plist("mine", "mine"));
         s.fileManager.setWriteError(kPlist, EACCES);
       },
       {kBackedUp},
       plist("mine", "mine"),
       plist("mine", "mine")},
      {"missing",
       [](SimulatedPlatform&) {},
       {kNotBackedUp, "ERROR Info.plist could not be loaded"},
       {},
       {}},
      {"unreadable",
       [](SimulatedPlatform& s) {
         s.propertyLists.setDictionary(kPlist, plist({}, {}));
         s.fileManager.setIsReadable(kPlist, false);
       },
       {kNotBackedUp, "ERROR Info.plist could not be loaded"},
       {},
       {}},
      {"damaged",
       [](SimulatedPlatform& s) { s.fileManager.addFile(kPlist, "<plist"); },
       {kBackedUp, "ERROR Info.plist could not be loaded"},
       {},
       {}},
      {"cannot be backed up",
       [](SimulatedPlatform& s) {
         s.propertyLists.setDictionary(kPlist, plist({}, {}));
         s.fileManager.setWriteError(kBackup, EACCES);
       },
       {"ERROR Failed to backup the Info.plist, "},
       plist({}, {}),
       {}},
      {"cannot be written",
       [](SimulatedPlatform& s) {
         s.propertyLists.setDictionary(kPlist, plist({}, {}));
         s.fileManager.setWriteError(kPlist, EROFS);
       },
       {kBackedUp, "ERROR Info.plist file not written: " + kPlist},
       plist({}, {}),
       plist({}, {})},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    SimulatedPlatform system;
    c.prepare(system);
    patchInfoPlist(system.handle(), platform::Logger(system.log, "main"));

    ASSERT_EQ(system.log.lines().size(), c.lines.size());
    for (std::size_t i = 0; i < c.lines.size(); ++i) {
      const auto& line = system.log.lines()[i];
      const auto text = std::string(levelWord(line.level)) + " " + line.message;
      EXPECT_TRUE(text.starts_with(c.lines[i])) << text;
    }
    EXPECT_EQ(system.propertyLists.dictionary(kPlist), c.result);
    EXPECT_EQ(system.propertyLists.dictionary(kBackup), c.backup);
  }
}

}  // namespace
}  // namespace wrixel2::daemon
