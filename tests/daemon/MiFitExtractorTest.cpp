#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "daemon/MiFitExtractor.h"
#include "daemon/MiFitFiles.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace wrixel2::daemon {
namespace {

using platform::Dictionary;
using platform::simulated::SimulatedPlatform;
using Lines = std::vector<std::string>;

const std::string kBase = "/data/MiFit";
const std::string kPreferences = kBase + "/Library/Preferences/";
const std::string kUserFile = kPreferences + "HM.wristband.plist";
const std::string kFallback = "3F1A7C92-0B4D-4E58-8A61-C5D27E9B0F34";
const std::string kKey = "00112233445566778899aabbccddeeff";
const std::string kUser = "123456";

std::string keyFileOf(const std::string& user) {
  return kPreferences + user + "/BandInfoConfigStore.plist";
}
std::string fetched(const std::string& user, const std::string& key = "<private>") {
  return "INFO Fetched auth info " + key + " from plist: " + keyFileOf(user);
}

const std::string kNoPath = "WARN Path not found: (null)";
const std::string kNoUserFile = "WARN Path not found: " + kUserFile;
const std::string kNoUser = "WARN Cannot extract user name from MiFit";
const std::string kNoKey = "WARN Cannot extract auth key from MiFit";

class MiFitExtractorTest : public testing::Test {
 protected:
  MiFitExtractorTest() { reset(); }

  void reset() {
    extractor.reset();
    companion.reset();
    system.emplace();
    companion = system->messageCenters.centerNamed("org.corvale.wrixel2Ipc");
    EXPECT_FALSE(companion->runServer());
    appInfo = {{"MiFitBasePath", kBase}};
    companion->registerForMessageNameWithReply(
        "appInfo", [this](std::string_view, const Dictionary&) -> platform::Result<Dictionary> {
          return appInfo;
        });
    extractor.emplace(system->handle());
  }
  void addFolder(const std::string& path) { system->fileManager.addDirectory(path); }
  void addKey(const std::string& user, const std::string& key = kKey) {
    system->propertyLists.setDictionary(keyFileOf(user), {{"band_bind_auth_key", key}});
  }
  void addUserFile(const Dictionary& contents) {
    system->propertyLists.setDictionary(kUserFile, contents);
    addKey(kUser);
  }
  /// "WARN text" for each line, in order, behind the file's name where it is not the module's. What
  /// follows "could not be loaded: " or "companion: " is an error in the platform's words, and is
  /// left out.
  Lines lines() const {
    Lines result;
    for (const auto& line : system->log.lines()) {
      result.push_back((line.module == "MiFitExtractor" ? "" : line.module + " ") +
                       std::string(levelWord(line.level)) + " " + line.message);
      for (const std::string ending : {" could not be loaded: ", " shell companion: "}) {
        if (const auto at = result.back().find(ending); at != std::string::npos) {
          result.back().resize(at + ending.size() - 2);
        }
      }
    }
    return result;
  }

  Dictionary appInfo;
  std::optional<SimulatedPlatform> system;
  std::unique_ptr<platform::MessageCenter> companion;
  std::optional<MiFitExtractor> extractor;
};

TEST_F(MiFitExtractorTest, FindsTheKeyOrFallsBack) {
  const std::string kNotLoaded = " could not be loaded";
  const std::string kNoText = " entry \"userid\": it is of kind boolean, not a text";
  const struct {
    const char* what;
    std::function<void()> prepare;
    bool isFound;
    Lines lines;  ///< after the first, which is always that no path is known yet
  } kCases[] = {
      {"user file", [this] { addUserFile({{"userid", kUser}}), addKey("1000000", "another's"); },
       true, Lines{fetched(kUser)}},
      {"user file without the user", [this] { addUserFile({{"other", 1}}); }, true,
       Lines{fetched(kUser)}},
      {"user that is no text", [this] { addUserFile({{"userid", true}}); }, true,
       Lines{"CheckedDictionary WARN Ignoring " + kUserFile + kNoText, fetched(kUser)}},
      {"user that is a place elsewhere",
       [this] { addUserFile({{"userid", "../1234567"}}), addKey("../1234567", "another's"); }, true,
       Lines{"MiFitFiles WARN \"../1234567\" in " + kUserFile + " is no user's id",
             fetched(kUser)}},
      {"damaged user file",
       [this] { system->fileManager.addFile(kUserFile, "<plist"), addKey(kUser); }, true,
       Lines{"MiFitFiles ERROR Property list " + kUserFile + kNotLoaded, fetched(kUser)}},
      {"the first folder that is a user's",
       [this] {
         addKey("12345", "too short a number");
         addKey("123456a", "a letter behind it");
         addKey("user", "no number");
         addKey(kUser);
         addKey("9876543", "a later one");
       },
       true, Lines{kNoUserFile, fetched(kUser)}},
      {"user among the documents, without a key",
       [this] { addFolder(kPreferences + "12345"), addFolder(kBase + "/Documents/999999"); }, false,
       Lines{kNoUserFile, "WARN Failed to fetch auth id", kNoKey}},
      {"no user anywhere",
       [this] { addFolder(kPreferences + "12345"), addFolder(kBase + "/Documents/12345"); }, false,
       Lines{kNoUserFile, kNoUser, kNoKey}},
      {"nothing there", [] {}, false, Lines{kNoUserFile, kNoUser, kNoKey}},
      {"no base path", [this] { appInfo.clear(), addFolder("/Library/Preferences/123456"); }, false,
       Lines{kNoPath, kNoUser, kNoKey}},
      {"empty base path",
       [this] { appInfo = {{"MiFitBasePath", ""}}, addFolder("/Library/Preferences/123456"); },
       false, Lines{kNoPath, kNoUser, kNoKey}},
      {"no companion", [this] { companion.reset(); }, false,
       Lines{"ShellCompanion WARN No app info from the shell companion", kNoPath, kNoUser, kNoKey}},
      {"damaged key file", [this] { system->fileManager.addFile(keyFileOf(kUser), "<plist"); },
       false,
       Lines{kNoUserFile, "MiFitFiles ERROR Property list " + keyFileOf(kUser) + kNotLoaded,
             kNoKey}},
      {"no key", [this] { system->propertyLists.setDictionary(keyFileOf(kUser), {}); }, false,
       Lines{kNoUserFile, fetched(kUser, "(null)"), kNoKey}},
      {"empty key", [this] { addKey(kUser, ""); }, false,
       Lines{kNoUserFile, fetched(kUser), kNoKey}},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    reset();
    c.prepare();
    EXPECT_EQ(extractor->getMiFitAuthId(), c.isFound ? kKey : kFallback);
    auto expected = c.lines;
    expected.insert(expected.begin(), "WARN MiFit path: (null) doesn't exist, fetching a new one");
    EXPECT_EQ(lines(), expected);
  }
}

TEST_F(MiFitExtractorTest, AKeyOnceReadSurvivesTheApp) {
  EXPECT_EQ(extractor->getMiFitAuthId(), kFallback);
  system->log.clear();
  EXPECT_EQ(extractor->getMiFitAuthId(), kFallback);
  EXPECT_EQ(lines().back(), kNoUser) << "the fallback is a key read before";
  addKey(kUser);
  system->messageCenters.clearSentMessages();
  system->log.setShowsPrivate(true);
  EXPECT_EQ(extractor->getMiFitAuthId(), kKey);
  EXPECT_EQ(lines().back(), fetched(kUser, kKey)) << "where private texts are shown";

  // A band paired anew is known at once, without asking for the path again.
  addKey(kUser, "another");
  EXPECT_EQ(extractor->getMiFitAuthId(), "another");
  EXPECT_EQ(system->messageCenters.sentMessages("appInfo").size(), 0U);

  EXPECT_FALSE(system->fileManager.removeItemAtPath(kBase));
  system->log.clear();
  EXPECT_EQ(extractor->getMiFitAuthId(), "another");
  EXPECT_EQ(lines(), (Lines{"WARN MiFit path: " + kBase + " doesn't exist, fetching a new one",
                            kNoUserFile, kNoUser}));
  EXPECT_EQ(system->messageCenters.sentMessages("appInfo").size(), 1U);
}

TEST_F(MiFitExtractorTest, TheKeyFileMayVanishBetweenTheLookAndTheLoad) {
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
  } vanishing(*system);
  addKey(kUser);
  const platform::Logger logger(system->log, "MiFitExtractor");
  EXPECT_EQ(MiFitFiles(system->fileManager, vanishing, logger, kBase).authKey(), std::nullopt);
  EXPECT_EQ(lines().back(), "WARN Mi Fit pref file " + keyFileOf(kUser) +
                                " doesn't exist. Using invalid band info for now");
}

}  // namespace
}  // namespace wrixel2::daemon
