#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using namespace std::chrono_literals;
using Words = std::vector<std::string>;

const std::string kKey = "00112233445566778899aabbccddeeff";
const std::string kOther = "FFEEDDCCBBAA99887766554433221100";

class KeyTest : public CtlTest {
 protected:
  std::string importedKey() {
    const ExitStatus status = run({"key", "show", "--reveal"});
    return status == ExitStatus::done ? console.output : "none";
  }
  std::string keyOnDisk() const {
    const auto plist = propertyLists.dictionaryWithContentsOfFile(
        directory.path("MiFit/Library/Preferences/1000000000/BandInfoConfigStore.plist"));
    return plist ? platform::textForKey(*plist, "band_bind_auth_key").value_or("") : "";
  }
  /// A folder as the maker's app has it.
  std::string appFolder(const std::string& user, const std::string& key) {
    const std::string preferences = directory.path("app/Library/Preferences");
    EXPECT_FALSE(propertyLists.writeToFileAtomically(preferences + "/HM.wristband.plist",
                                                     {{"userid", user}}));
    EXPECT_FALSE(propertyLists.writeToFileAtomically(
        preferences + "/" + user + "/BandInfoConfigStore.plist", {{"band_bind_auth_key", key}}));
    return directory.path("app");
  }
  static unsigned modeOf(const std::filesystem::path& path) {
    struct stat status{};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
  }
};

TEST_F(KeyTest, IsTakenFromATextOrAFileOrTheAppsFolders) {
  const std::string app = appFolder("7654321", kKey);
  const struct {
    const char* what;
    std::string source;
    std::string input;
    std::string key;  ///< empty: refused
    std::string inErrors;
  } kCases[] = {
      {"text", "-", kKey, kKey, ""},
      {"text between blanks", "-", "\n  " + kOther + " \r\n", kOther, ""},
      {"text of another kind", "-", "0-my-key", "0-my-key", "not 32 hexadecimal digits"},
      {"file", directory.write("key.txt", kOther + "\n"), "", kOther, ""},
      {"base folder", app, "", kKey, ""},
      {"base folder with a slash", app + "/", "", kKey, ""},
      {"preferences folder", app + "/Library/Preferences", "", kKey, ""},
      {"the app's own file", app + "/Library/Preferences/7654321/BandInfoConfigStore.plist", "",
       kKey, ""},
      {"nothing", "-", " \n", "", "there is no key in it"},
      {"two lines", "-", kKey + "\n" + kOther, "", "a single line"},
      {"two words", "-", "my key", "", "no blanks"},
      {"bytes", directory.write("key.bin", std::string("\x01\x02\xff", 3)), "", "", "no text"},
      {"endless", "-", std::string(257, 'a'), "", "no text"},
      {"no file", directory.path("missing"), "", "", "missing cannot be read"},
      {"another app's folder", directory.path("app/Library"), "", "",
       "Cannot extract user name from MiFit"},
      {"another property list", app + "/Library/Preferences/HM.wristband.plist", "", "",
       "a property list without a key"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    std::filesystem::remove_all(directory.path("MiFit"));
    console.input = c.input;
    EXPECT_EQ(run({"key", "import", c.source, "--no-check"}),
              c.key.empty() ? ExitStatus::failed : ExitStatus::done);
    EXPECT_NE(console.errors.find(c.inErrors), std::string::npos) << console.errors;
    EXPECT_EQ(console.errors.empty(), c.inErrors.empty()) << console.errors;
    EXPECT_EQ(console.output.find(kKey), std::string::npos) << "the key is shown";
    EXPECT_EQ(importedKey(), c.key.empty() ? "none" : c.key + "\n");
  }
}

TEST_F(KeyTest, IsTheOwnersAloneAndTheOldOneHoldsUntilTheNewIsThere) {
  console.input = kKey;
  ASSERT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  const std::filesystem::path base = directory.path("MiFit");
  const auto file = base / "Library/Preferences/1000000000/BandInfoConfigStore.plist";
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(modeOf(base / "Library/Preferences/HM.wristband.plist"), 0600U);
  EXPECT_EQ(modeOf(file.parent_path()), 0700U);

  // As somebody may have copied it by hand, with what the app has beside the key.
  namespace fs = std::filesystem;
  ASSERT_FALSE(propertyLists.writeToFileAtomically(
      file.string(), {{"band_bind_auth_key", kKey}, {"band", "Mi Band 2"}}));
  fs::permissions(file, fs::perms(0644));
  fs::permissions(base, fs::perms(0755));
  console.input = kOther;
  ASSERT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(modeOf(base), 0700U);
  const auto written = propertyLists.dictionaryWithContentsOfFile(file.string());
  ASSERT_TRUE(written);
  EXPECT_EQ(*written,
            (platform::Dictionary{{"band_bind_auth_key", kOther}, {"band", "Mi Band 2"}}));

  // The user that the folder names stays.
  fs::remove_all(base);
  fs::rename(appFolder("7654321", kKey), base);
  console.input = kOther;
  ASSERT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  EXPECT_TRUE(fs::exists(base / "Library/Preferences/7654321/BandInfoConfigStore.plist"));
  EXPECT_FALSE(fs::exists(base / "Library/Preferences/1000000000"));
  EXPECT_EQ(importedKey(), kOther + "\n");

  console.input = "";
  EXPECT_EQ(run({"key", "import", "-"}), ExitStatus::failed);
  EXPECT_EQ(importedKey(), kOther + "\n");
}

TEST_F(KeyTest, IsShownByAFingerprintThatTellsKeysApart) {
  console.input = kKey;
  ASSERT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  ASSERT_EQ(run({"key", "show"}), ExitStatus::done);
  const std::string first = console.output;
  EXPECT_EQ(first.size(), 9U);
  EXPECT_EQ(kKey.find(first.substr(0, 8)), std::string::npos);
  console.input = kOther;
  ASSERT_EQ(run({"key", "import", "-", "--no-check"}), ExitStatus::done);
  ASSERT_EQ(run({"key", "show"}), ExitStatus::done);
  EXPECT_NE(console.output, first);
}

TEST_F(KeyTest, IsTriedOnTheBand) {
  const struct {
    const char* what;
    std::vector<std::pair<platform::TimeInterval, std::string>> announced;
    ExitStatus status;
    std::string inOutput;
    std::string inErrors;
  } kCases[] = {
      {"accepted", {{1s, ""}, {59s, "accepted"}}, ExitStatus::done, "The band accepts it.", ""},
      {"refused", {{1s, ""}, {5s, "refused"}}, ExitStatus::failed, "", "the band refuses this key"},
      {"not reached",
       {{1s, ""}, {61s, "accepted"}},
       ExitStatus::timedOut,
       "",
       "the key will be tried when it is there"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    world.pending.clear();
    world.daemon->insert_or_assign("Authentication", "accepted");
    world.onSent = [&](const std::string& name) {
      EXPECT_EQ(name, "org.corvale.wrixel2.keyChanged");
      EXPECT_EQ(keyOnDisk(), kKey) << "the daemon is told before the key is there";
      for (const auto& [delay, value] : c.announced) {
        world.after(delay,
                    [this, text = value] { world.changeStatus({{"Authentication", text}}); });
      }
    };
    console.input = kKey;
    EXPECT_EQ(run({"key", "import", "-"}), c.status);
    EXPECT_NE(console.output.find(c.inOutput), std::string::npos) << console.output;
    EXPECT_NE(console.errors.find(c.inErrors), std::string::npos) << console.errors;
  }
  world.daemon.reset();
  EXPECT_EQ(run({"key", "import", "-"}), ExitStatus::done);
  EXPECT_NE(console.errors.find("will be tried when it does"), std::string::npos);
}

}  // namespace
}  // namespace wrixel2::ctl
