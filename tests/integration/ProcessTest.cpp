#include <algorithm>
#include <array>
#include <csignal>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "SessionTest.h"

#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace wrixel2::integration {
namespace {

const std::string kDaemon = std::string(WRIXEL2D_PATH) + " --band virtual --log stderr ";
const std::string kCompanion = std::string(WRIXEL2_COMPANION_PATH) + " --log stderr ";

/// What becomes of the programs where the system or a file is against them.
class ProcessTest : public SessionTest {
 protected:
  /// By a shell, which the program replaces.
  std::unique_ptr<Program> startShell(const std::string& command) {
    return start({"bash", "-c", "cd '" + directory_.string() + "'; " + command});
  }
  void waitForBoth() {
    waitUntil("both", [this] { return hasOwner(kBand.destination) && hasOwner(kCompanionName); });
  }
  void endBoth() {
    for (Program* program : {daemon_.get(), companion_.get()}) {
      program->signal(SIGTERM);
      waitForExit(*program, 0);
    }
    waitUntil("the names are free",
              [this] { return !hasOwner(kDaemonName) && !hasOwner(kCompanionName); });
  }
};

TEST_F(ProcessTest, WritesThatFailAreNoReasonToEnd) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  ::close(ends[0]);
  // Nobody reads the log; no file may get any longer.
  for (const std::string& fault : {"exec 2>&" + std::to_string(ends[1]) + "; exec ",
                                   std::string("exec 2>log; ulimit -f 0; exec ")}) {
    SCOPED_TRACE(fault);
    writeSettings("connectedMode = 1\n[apps.\"*\"]\nicon = 29\npreview = true\n");
    daemon_ = startShell(fault + kDaemon);
    companion_ = startShell(fault + kCompanion);
    waitForBoth();
    waitForBand();
    events_.clear();
    notify("Chat", "Chat", "hello");
    waitForText("Chat:hello");
    endBoth();
  }
  ::close(ends[1]);

  for (const auto& [command, status] :
       {std::pair(kDaemon + "stray 2", 2),
        {kCompanion + "stray 2", 2},
        {WRIXEL2_BANDVIEW_PATH " stray 2", 2},
        {WRIXEL2CTL_PATH " stray 2", 2},
        {WRIXEL2_PROGRAMS "/wrixel2-band --adapter stray 2", 2},
        {WRIXEL2D_PATH " --help ", 1},
        {"DBUS_SESSION_BUS_ADDRESS=none exec " + kDaemon + "2", 1}}) {
    SCOPED_TRACE(command);
    const auto program = startShell(command + ">/dev/full");
    waitForExit(*program, status);
  }
}

TEST_F(ProcessTest, TooFewDescriptorsAndAWorkingDirectoryThatIsGoneAreErrors) {
  const std::string gone = "mkdir gone; cd gone; rmdir ../gone; exec ";
  const auto companion = startShell(gone + kCompanion + "--config rel.toml");
  waitForExit(*companion, 1);
  EXPECT_EQ(companion->errors(),
            "wrixel2-companion: --config rel.toml: No such file or directory\n");
  const auto ctl = startShell(gone + WRIXEL2CTL_PATH + " key import x");
  waitForExit(*ctl, 1);
#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
  if (otherPrograms() == nullptr) {
    return;  // the sanitizers need descriptors, too
  }
#endif
  for (int descriptors = 4; descriptors <= 16; descriptors += 2) {
    const std::string few = "ulimit -n " + std::to_string(descriptors) + "; exec ";
    SCOPED_TRACE(few);
    for (const std::string& program :
         {kDaemon, kCompanion, std::string(WRIXEL2CTL_PATH " settings list")}) {
      const auto started = startShell(few + program);
      const auto isUp = [&] { return hasOwner(kBand.destination) || hasOwner(kCompanionName); };
      waitUntil("its start or end", [&] { return started->status() || isUp(); });
      if (!started->status()) {
        // What it lacks it may still notice on the way.
        started->signal(SIGKILL);
        waitUntil("its end", [&] { return started->status().has_value(); });
        waitUntil("the names are free", [&] { return !isUp(); });
        if (started->status() == 128 + SIGKILL) {
          continue;
        }
      }
      // Below that the loader has not enough, and says 127.
      EXPECT_TRUE(started->status() <= 1 || started->status() == 127)
          << program << started->errors();
      EXPECT_TRUE(started->status() == 0 || started->hasLogged("wrixel2")) << program;
    }
  }
}

// What the fuzzers begin with, as the files and words of the programs that ship.
TEST_F(ProcessTest, NoCorpusEndsAProgram) {
  if (otherPrograms() == nullptr) {
    GTEST_SKIP() << "The parts of these programs are fuzzed themselves";
  }
  for (const auto& entry : std::filesystem::recursive_directory_iterator(WRIXEL2_CORPORA)) {
    if (!entry.is_regular_file()) {
      continue;
    }
    SCOPED_TRACE(entry.path());
    const auto preferences = directory_ / "data/wrixel2/MiFit/Library/Preferences";
    for (const auto& file :
         {directory_ / "config/wrixel2/settings.toml", directory_ / "data/wrixel2/health.sqlite",
          directory_ / "state/wrixel2/apps.plist", directory_ / "state/wrixel2/companion.plist",
          directory_ / "state/wrixel2/defaults.plist",
          directory_ / "state/wrixel2/org.corvale.wrixel2.lock.plist",
          preferences / "HM.wristband.plist",
          preferences / "1234567890/BandInfoConfigStore.plist"}) {
      std::filesystem::create_directories(file.parent_path());
      std::filesystem::copy_file(entry, file, std::filesystem::copy_options::overwrite_existing);
    }
    std::ifstream file(entry.path(), std::ios::binary);
    std::string word{std::istreambuf_iterator<char>(file), {}};
    word.resize(std::min(word.size(), word.find('\0')));  // as much as an argument can have

    daemon_ = start({WRIXEL2D_PATH, "--band", "virtual", "--log", "stderr"});
    companion_ = start({WRIXEL2_COMPANION_PATH, "--log", "stderr"});
    waitForBoth();
    for (const std::vector<std::string>& words : std::vector<std::vector<std::string>>{
             {WRIXEL2CTL_PATH, "settings", "list"},
             {WRIXEL2CTL_PATH, "settings", "set", "apps." + word + ".icon", "1"},
             {WRIXEL2CTL_PATH, "key", "import", "--no-check", entry.path()},
             {WRIXEL2CTL_PATH, "key", "show"},
             {WRIXEL2CTL_PATH, "heart-rate", "--csv"},
             {WRIXEL2CTL_PATH, "apps", "set", word, "--icon", word},
             {WRIXEL2CTL_PATH, "apps", "list", "--json"},
             {WRIXEL2CTL_PATH, word},
             {WRIXEL2_COMPANION_PATH, word},
             {WRIXEL2D_PATH, word}}) {
      const auto program = start(words);
      waitUntil("its end", [&program] { return program->status().has_value(); });
      EXPECT_LE(program->status(), 4) << words[0] << " " << words[1] << program->errors();
      EXPECT_TRUE(program->status() == 0 || program->hasLogged("wrixel2")) << words[1];
    }
    endBoth();
  }
}

}  // namespace
}  // namespace wrixel2::integration
