#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/MiFitExtractor.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::daemon {
namespace {

using platform::Dictionary;
using platform::LogLevel;
using platform::simulated::SimulatedPlatform;

const std::string kBase = "/data/MiFit";
const std::string kPreferences = kBase + "/Library/Preferences";
const std::string kUserFile = kPreferences + "/HM.wristband.plist";
const std::string kFallback = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";
const std::string kKey = "00112233445566778899aabbccddeeff";

std::string keyFileOf(std::string_view user) {
  return kPreferences + "/" + std::string(user) + "/BandInfoConfigStore.plist";
}

class MiFitExtractorTest : public testing::Test {
 protected:
  MiFitExtractorTest() { reset(); }

  void reset() {
    extractor.reset();
    companion.reset();
    system.emplace();
    companion = system->messageCenters.centerNamed("org.corvale.wrixel2Ipc");
    EXPECT_FALSE(companion->runServer());
    companion->registerForMessageNameWithReply(
        "appInfo", [this](std::string_view, const Dictionary&) -> platform::Result<Dictionary> {
          return appInfo;
        });
    extractor.emplace(system->handle());
  }
  void addKey(std::string_view user, const std::string& key = kKey) {
    system->propertyLists.setDictionary(keyFileOf(user), {{"band_bind_auth_key", key}});
  }
  /// "WARN text" for each line, in order.
  std::vector<std::string> lines() const {
    std::vector<std::string> result;
    for (const auto& line : system->log.lines()) {
      EXPECT_EQ(line.module, "MiFitExtractor");
      result.push_back(std::string(levelWord(line.level)) + " " + line.message);
    }
    return result;
  }

  Dictionary appInfo{{"MiFitBasePath", kBase}};
  std::optional<SimulatedPlatform> system;
  std::unique_ptr<platform::MessageCenter> companion;
  std::optional<MiFitExtractor> extractor;
};

const std::string kNoPathYet = "WARN MiFit path: (null) doesn't exist, fetching a new one";
const std::string kNoUserFile = "WARN Path not found: " + kUserFile;
const std::string kNoUser = "WARN Cannot extract user name from MiFit";
const std::string kNoKey = "WARN Cannot extract auth key from MiFit";

std::string fetched(std::string_view user, const std::string& key = "<private>") {
  return "INFO Fetched auth info " + key + " from plist: " + keyFileOf(user);
}

TEST_F(MiFitExtractorTest, FindsTheKeyOrFallsBack) {
  using Lines = std::vector<std::string>;
  const struct {
    const char* what;
    std::function<void()> prepare;
    std::string key;
    Lines lines;  ///< after the first, which is always that no path is known yet
  } kCases[] = {
      {"user file",
       [this] {
         system->propertyLists.setDictionary(kUserFile, {{"userid", "1234567890"}});
         addKey("7654321", "another user's");
         addKey("1234567890");
       },
       kKey,
       {fetched("1234567890")}},
      {"folder in the preferences, the first that is a user's",
       [this] {
         addKey("12345", "too short a number");
         addKey("123456a", "a letter behind it");
         addKey("user", "no number");
         addKey("123456");
         addKey("9876543", "a later one");
       },
       kKey,
       {kNoUserFile, fetched("123456")}},
      {"user file without the user",
       [this] {
         system->propertyLists.setDictionary(kUserFile, {{"other", 1}});
         addKey("123456");
       },
       kKey,
       {fetched("123456")}},
      {"user file with a user that is no text",
       [this] {
         system->propertyLists.setDictionary(kUserFile, {{"userid", true}});
         addKey("123456");
       },
       kKey,
       {"WARN Ignoring " + kUserFile + " entry \"userid\": it is of kind boolean, not a text",
        fetched("123456")}},
      {"damaged user file",
       [this] {
         system->fileManager.addFile(kUserFile, "<plist");
         addKey("123456");
       },
       kKey,
       {"ERROR Property list " + kUserFile + " could not be loaded: *", fetched("123456")}},
      {"user's folder among the documents, whose key is in the preferences",
       [this] {
         system->fileManager.addDirectory(kPreferences + "/12345");
         system->fileManager.addDirectory(kBase + "/Documents/999999");
       },
       kFallback,
       {kNoUserFile, "WARN Failed to fetch auth id", kNoKey}},
      {"no user anywhere",
       [this] {
         system->fileManager.addDirectory(kPreferences + "/12345");
         system->fileManager.addDirectory(kBase + "/Documents/12345");
       },
       kFallback,
       {kNoUserFile, kNoUser, kNoKey}},
      {"nothing there", [] {}, kFallback, {kNoUserFile, kNoUser, kNoKey}},
      {"no base path",
       [this] {
         appInfo.clear();
         system->fileManager.addDirectory("/Library/Preferences/123456");
       },
       kFallback,
       {"WARN Path not found: (null)", kNoUser, kNoKey}},
      {"empty base path",
       [this] {
         appInfo = {{"MiFitBasePath", ""}};
         system->fileManager.addDirectory("/Library/Preferences/123456");
       },
       kFallback,
       {"WARN Path not found: (null)", kNoUser, kNoKey}},
      {"no companion",
       [this] { companion.reset(); },
       kFallback,
       {"WARN No app info from the shell companion: *", "WARN Path not found: (null)", kNoUser,
        kNoKey}},
      {"damaged key file",
       [this] { system->fileManager.addFile(keyFileOf("123456"), "<plist"); },
       kFallback,
       {kNoUserFile, "ERROR Property list " + keyFileOf("123456") + " could not be loaded: *",
        kNoKey}},
      {"key file without the key",
       [this] { system->propertyLists.setDictionary(keyFileOf("123456"), {}); },
       kFallback,
       {kNoUserFile, fetched("123456", "(null)"), kNoKey}},
      {"empty key",
       [this] { addKey("123456", ""); },
       kFallback,
       {kNoUserFile, fetched("123456"), kNoKey}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    appInfo = {{"MiFitBasePath", kBase}};
    reset();
    c.prepare();
    EXPECT_EQ(extractor->getMiFitAuthId(), c.key);
    const auto logged = lines();
    ASSERT_EQ(logged.size(), c.lines.size() + 1);
    EXPECT_EQ(logged.front(), kNoPathYet);
    for (std::size_t i = 0; i < c.lines.size(); ++i) {
      // A star stands for the error, in the platform's words.
      const bool hasError = c.lines[i].ends_with('*');
      const auto expected = c.lines[i].substr(0, c.lines[i].size() - (hasError ? 1 : 0));
      EXPECT_EQ(hasError ? logged[i + 1].substr(0, expected.size()) : logged[i + 1], expected);
    }
  }
}

TEST_F(MiFitExtractorTest, AKeyOnceReadSurvivesTheApp) {
  addKey("123456");
  EXPECT_EQ(extractor->getMiFitAuthId(), kKey);
  EXPECT_EQ(system->messageCenters.sentMessages("appInfo").size(), 1U);

  // A band paired anew is known at once, without asking for the path again.
  addKey("123456", "another");
  EXPECT_EQ(extractor->getMiFitAuthId(), "another");
  EXPECT_EQ(system->messageCenters.sentMessages("appInfo").size(), 1U);

  EXPECT_FALSE(system->fileManager.removeItemAtPath(kBase));
  system->log.clear();
  EXPECT_EQ(extractor->getMiFitAuthId(), "another");
  EXPECT_EQ(lines(), (std::vector<std::string>{
                         "WARN MiFit path: " + kBase + " doesn't exist, fetching a new one",
                         kNoUserFile, kNoUser}));
  EXPECT_EQ(system->messageCenters.sentMessages("appInfo").size(), 2U);
}

TEST_F(MiFitExtractorTest, TheFallbackGivesWayToAKeyThatAppears) {
  EXPECT_EQ(extractor->getMiFitAuthId(), kFallback);
  system->log.clear();
  EXPECT_EQ(extractor->getMiFitAuthId(), kFallback);
  EXPECT_EQ(lines().back(), kNoUser) << "the fallback is a key read before";
  addKey("123456");
  EXPECT_EQ(extractor->getMiFitAuthId(), kKey);
}

TEST_F(MiFitExtractorTest, TheKeyIsInTheLogOnlyWherePrivateTextsAreShown) {
  addKey("123456");
  system->log.setShowsPrivate(true);
  extractor->getMiFitAuthId();
  EXPECT_EQ(lines().back(), fetched("123456", kKey));
}

TEST(MiFitExtractorRaceTest, TheKeyFileMayVanishBetweenTheLookAndTheLoad) {
  SimulatedPlatform system;
  /// Removes the file while it is loaded.
  class VanishingPropertyLists final : public platform::PropertyLists {
   public:
    explicit VanishingPropertyLists(SimulatedPlatform& system) : system_(system) {}
    platform::Result<Dictionary> dictionaryWithContentsOfFile(
        const std::string& path) const override {
      static_cast<void>(system_.fileManager.removeItemAtPath(path));
      return system_.propertyLists.dictionaryWithContentsOfFile(path);
    }
    platform::ErrorOrNone writeToFileAtomically(const std::string&, const Dictionary&) override {
      return {};
    }

   private:
    SimulatedPlatform& system_;
  } vanishing(system);
  const auto companion = system.messageCenters.centerNamed("org.corvale.wrixel2Ipc");
  ASSERT_FALSE(companion->runServer());
  companion->registerForMessageNameWithReply(
      "appInfo", [](std::string_view, const Dictionary&) -> platform::Result<Dictionary> {
        return Dictionary{{"MiFitBasePath", kBase}};
      });
  system.propertyLists.setDictionary(keyFileOf("123456"), {{"band_bind_auth_key", kKey}});
  const auto& p = system.handle();
  const platform::Platform racing{p.runLoop,
                                  p.clock,
                                  p.localTimeZone,
                                  p.log,
                                  p.messageCenters,
                                  p.darwinNotifyCenter,
                                  p.distributedNotificationCenter,
                                  p.objectExporter,
                                  p.bluetoothRadio,
                                  p.healthStore,
                                  vanishing,
                                  p.userDefaults,
                                  p.fileManager,
                                  p.systemInfo,
                                  p.serviceManager};
  MiFitExtractor extractor(racing);
  EXPECT_EQ(extractor.getMiFitAuthId(), kFallback);
  EXPECT_EQ(
      system.log.count(LogLevel::warning, "Mi Fit pref file " + keyFileOf("123456") +
                                              " doesn't exist. Using invalid band info for now"),
      1U);
}

}  // namespace
}  // namespace wrixel2::daemon
