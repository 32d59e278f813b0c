#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

#include "tests/ctl/CtlFixture.h"

namespace wrixel2::ctl {
namespace {

using enum ExitStatus;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

const std::string kKey = "00112233445566778899aabbccddeeff";
const std::string kOther = "FFEEDDCCBBAA99887766554433221100";

class KeyTest : public CtlTest {
 protected:
  /// Without trying it on the band.
  ExitStatus import(const std::string& input, const std::string& source = "-") {
    console.input = input;
    return run({"key", "import", source, "--no-check"});
  }
  std::string importedKey() {
    const ExitStatus status = run("key show --reveal");
    return status == done ? console.output : "none";
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
  static unsigned modeOf(const fs::path& path) {
    struct stat status{};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 0777U;
  }
};

TEST_F(KeyTest, IsTakenFromATextOrAFileOrTheAppsFolders) {
  const std::string app = appFolder("7654321", kKey);
  const std::string preferences = app + "/Library/Preferences";
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
      {"preferences folder", preferences, "", kKey, ""},
      {"the app's own file", preferences + "/7654321/BandInfoConfigStore.plist", "", kKey, ""},
      {"nothing", "-", " \n", "", "there is no key in it"},
      {"two lines", "-", kKey + "\n" + kOther, "", "a single line"},
      {"two words", "-", "my key", "", "no blanks"},
      {"bytes", directory.write("key.bin", "\x01\x02\xff"), "", "", "no text"},
      {"endless", "-", std::string(257, 'a'), "", "no text"},
      {"no file", directory.path("missing"), "", "", "missing cannot be read"},
      {"no name", "", "", "", "\"\" is no path"},
      {"another folder", app + "/Library", "", "", "Cannot extract user name from MiFit"},
      {"another property list", preferences + "/HM.wristband.plist", "", "",
       "a property list without a key"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    fs::remove_all(directory.path("MiFit"));
    EXPECT_EQ(import(c.input, c.source), c.key.empty() ? failed : done);
    expectPart(console.errors, c.inErrors);
    EXPECT_EQ(console.errors.empty(), c.inErrors.empty()) << console.errors;
    EXPECT_EQ(console.output.find(kKey), std::string::npos) << "the key is shown";
    EXPECT_EQ(importedKey(), c.key.empty() ? "none" : c.key + "\n");
  }
  // From a working directory that is gone.
  const auto before = fs::current_path();
  fs::create_directory(directory.path("gone"));
  fs::current_path(directory.path("gone"));
  fs::remove(directory.path("gone"));
  EXPECT_EQ(import("", "key.txt"), failed);
  fs::current_path(before);
  expectPart(console.errors, "\"key.txt\" is no path");
}

TEST_F(KeyTest, IsTheOwnersAloneAndTheOldOneHoldsUntilTheNewIsThere) {
  ASSERT_EQ(import(kKey), done);
  const fs::path base = directory.path("MiFit");
  const auto file = base / "Library/Preferences/1000000000/BandInfoConfigStore.plist";
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(modeOf(base / "Library/Preferences/HM.wristband.plist"), 0600U);
  EXPECT_EQ(modeOf(file.parent_path()), 0700U);

  // As somebody may have copied it by hand, with what the app has beside the key.
  ASSERT_FALSE(propertyLists.writeToFileAtomically(
      file.string(), {{"band_bind_auth_key", kKey}, {"band", "Mi Band 2"}}));
  fs::permissions(file, fs::perms(0644));
  fs::permissions(base, fs::perms(0755));
  ASSERT_EQ(import(kOther), done);
  EXPECT_EQ(modeOf(file), 0600U);
  EXPECT_EQ(modeOf(base), 0700U);
  const auto written = propertyLists.dictionaryWithContentsOfFile(file.string());
  ASSERT_TRUE(written);
  EXPECT_EQ(*written,
            (platform::Dictionary{{"band_bind_auth_key", kOther}, {"band", "Mi Band 2"}}));

  // The user that the folder names stays.
  fs::remove_all(base);
  fs::rename(appFolder("7654321", kKey), base);
  ASSERT_EQ(import(kOther), done);
  EXPECT_TRUE(fs::exists(base / "Library/Preferences/7654321/BandInfoConfigStore.plist"));
  EXPECT_FALSE(fs::exists(base / "Library/Preferences/1000000000"));
  EXPECT_EQ(importedKey(), kOther + "\n");

  console.input = "";
  EXPECT_EQ(run("key import -"), failed);
  EXPECT_EQ(importedKey(), kOther + "\n");
}

TEST_F(KeyTest, IsShownByAFingerprintThatTellsKeysApart) {
  ASSERT_EQ(import(kKey), done);
  ASSERT_EQ(run("key show"), done);
  const std::string first = console.output;
  EXPECT_EQ(first.size(), 9U);
  EXPECT_EQ(kKey.find(first.substr(0, 8)), std::string::npos);
  ASSERT_EQ(import(kOther), done);
  ASSERT_EQ(run("key show"), done);
  EXPECT_NE(console.output, first);
}

TEST_F(KeyTest, IsTriedOnTheBand) {
  const struct {
    platform::TimeInterval delay;
    const char* verdict;
    ExitStatus status;
    std::string inOutput;
    std::string inErrors;
  } kCases[] = {
      {59s, "accepted", done, "The band accepts it.", ""},
      {5s, "refused", failed, "", "the band refuses this key"},
      {61s, "accepted", timedOut, "", "the key will be tried when it is there"},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.inOutput + c.inErrors);
    world.pending.clear();
    world.daemon->insert_or_assign("Authentication", "accepted");
    world.onSent = [&](const std::string& name) {
      EXPECT_EQ(name, "org.corvale.wrixel2.keyChanged");
      EXPECT_EQ(keyOnDisk(), kKey) << "the daemon is told before the key is there";
      world.after(1s, [this] { world.changeStatus({{"Authentication", ""}}); });
      world.after(c.delay, [&] { world.changeStatus({{"Authentication", c.verdict}}); });
    };
    console.input = kKey;
    EXPECT_EQ(run("key import -"), c.status);
    expectPart(console.output, c.inOutput);
    expectPart(console.errors, c.inErrors);
  }
  world.daemon.reset();
  EXPECT_EQ(run("key import -"), done);
  expectPart(console.errors, "will be tried when it does");
}

}  // namespace
}  // namespace wrixel2::ctl
