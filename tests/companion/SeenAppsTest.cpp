#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "companion/CompanionObject.h"
#include "companion/SeenApps.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::companion {
namespace {

using namespace std::chrono_literals;
using platform::Array;
using platform::Dictionary;
using platform::LogLevel;
using platform::Value;
using Names = std::vector<std::string>;

constexpr const char* kFile = "/home/anna/.local/state/wrixel2/apps.plist";

class SeenAppsTest : public testing::Test {
 protected:
  std::unique_ptr<SeenApps> open() {
    auto apps = std::make_unique<SeenApps>(phone_.runLoop, phone_.clock, phone_.propertyLists,
                                           phone_.log, kFile);
    apps->load();
    return apps;
  }
  /// The number of an app's notifications in the file; 0 for one that is not there.
  std::int64_t countInFile(const std::string& app) const {
    const auto file = phone_.propertyLists.dictionary(kFile);
    for (const Value& entry : file ? *file->at("apps").array() : Array{}) {
      if (platform::textForKey(*entry.dictionary(), "id") == app) {
        return entry.dictionary()->at("count").longValue();
      }
    }
    return 0;
  }
  std::int64_t now() const {
    return std::chrono::floor<std::chrono::seconds>(phone_.clock.now()).time_since_epoch().count();
  }

  platform::simulated::SimulatedPlatform phone_;
};

TEST_F(SeenAppsTest, KeepsAppsOverARestart) {
  const std::int64_t first = now();
  auto apps = open();
  apps->noted("org.example.Chat", "Chat");
  apps->noted("org.example.Mail", "");
  phone_.runLoop.runFor(90s);
  apps->noted("org.example.Chat", "Chatter");
  apps->noted("org.example.Chat", "");
  const std::vector<SeenApp> expected{{"org.example.Mail", "", 1, first, first},
                                      {"org.example.Chat", "Chatter", 3, first, first + 90}};
  EXPECT_EQ(apps->apps(), expected);
  apps.reset();
  EXPECT_EQ(open()->apps(), expected);
}

TEST_F(SeenAppsTest, WritesANewAppAtOnceAndTheRestInTenMinutes) {
  const auto apps = open();
  apps->noted("Chat", "");
  EXPECT_EQ(countInFile("Chat"), 1);
  apps->noted("Chat", "");
  phone_.runLoop.runFor(599s);
  apps->noted("Chat", "");
  EXPECT_EQ(countInFile("Chat"), 1);
  phone_.runLoop.runFor(1s);
  EXPECT_EQ(countInFile("Chat"), 3);
  EXPECT_EQ(phone_.runLoop.pendingTimers(), 0U) << "nothing changes, nothing wakes";
  apps->noted("Chat", "");
  apps->noted("Mail", "");
  EXPECT_EQ(countInFile("Chat"), 4);
  EXPECT_EQ(phone_.runLoop.pendingTimers(), 0U);
}

TEST_F(SeenAppsTest, ForgetsWhoWasSilentLongestAboveItsBound) {
  const auto apps = open();
  apps->noted("first", "");
  apps->noted("second", "");
  apps->noted("first", "");
  for (int i = 0; i < 255; ++i) {
    apps->noted("app " + std::to_string(i), "");
  }
  ASSERT_EQ(apps->apps().size(), 256U);
  EXPECT_EQ(apps->apps().front().identifier, "first");
  EXPECT_EQ(countInFile("second"), 0);
}

TEST_F(SeenAppsTest, LeavesOutWhatNoAppIsCalled) {
  const auto apps = open();
  for (const std::string& identifier : Names{"", "a\x01z", "a\nb", std::string(256, 'a')}) {
    apps->noted(identifier, "");
  }
  EXPECT_TRUE(apps->apps().empty());
  apps->noted("Chat", "Name\twith control");
  EXPECT_EQ(apps->apps().front().name, "");
}

TEST_F(SeenAppsTest, ABrokenFileIsReportedAndBegunAnew) {
  open();
  EXPECT_TRUE(phone_.log.lines().empty()) << "there is none at first";
  phone_.fileManager.addFile(kFile, "not a property list");
  auto apps = open();
  EXPECT_TRUE(phone_.log.contains(LogLevel::warning, "begins anew"));
  apps->noted("Chat", "");
  EXPECT_EQ(countInFile("Chat"), 1);

  phone_.log.clear();
  phone_.propertyLists.setDictionary(kFile, {{"apps", "text"}});
  EXPECT_TRUE(open()->apps().empty());
  EXPECT_TRUE(phone_.log.contains(LogLevel::warning, "begins anew"));

  phone_.propertyLists.setDictionary(
      kFile, {{"apps", Array{"text", Dictionary{}, Dictionary{{"id", 7}},
                             Dictionary{{"id", "Chat"}, {"count", "many"}, {"name", Array{}}},
                             Dictionary{{"id", "Chat"}}}}});
  EXPECT_EQ(open()->apps(), (std::vector<SeenApp>{{"Chat", "", 0, 0, 0}}));
}

TEST_F(SeenAppsTest, AFailureToWriteIsReportedOnceAndTriedAgain) {
  phone_.fileManager.setWriteError(kFile, 28);
  auto apps = open();
  apps->noted("Chat", "");
  apps->noted("Mail", "");
  EXPECT_EQ(phone_.log.messages(LogLevel::error).size(), 1U);
  phone_.fileManager.setWriteError(kFile, 0);
  apps.reset();
  EXPECT_EQ(countInFile("Mail"), 1);
}

TEST_F(SeenAppsTest, TheBusShowsAppsAndAnnouncesTheRest) {
  const auto apps = open();
  apps->noted("Chat", "The Chat");
  apps->noted("Mail", "");
  CompanionObject object(phone_.objectExporter, *apps, phone_.log);
  constexpr const char* kPath = "/org/corvale/wrixel2Ipc";
  EXPECT_EQ(phone_.objectExporter.property(kPath, "Apps"),
            Value(Array{
                Dictionary{{"id", "Mail"}, {"name", ""}, {"count", 1}, {"last", now()}},
                Dictionary{{"id", "Chat"}, {"name", "The Chat"}, {"count", 1}, {"last", now()}}}));
  const std::string kProblem = "settings.toml:2: mode is a text";
  object.setStatus({true, false, ""});
  object.setStatus({true, true, kProblem});
  object.setStatus({true, true, kProblem});
  Names changed;
  for (const auto& change : phone_.objectExporter.propertyChanges()) {
    changed.push_back(change.name);
  }
  EXPECT_EQ(changed, (Names{"DoNotDisturb", "Locked", "SettingsProblem"}));
  EXPECT_EQ(phone_.objectExporter.property(kPath, "SettingsProblem"), Value(kProblem));
}

}  // namespace
}  // namespace wrixel2::companion
