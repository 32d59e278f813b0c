#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "companion/SettingsFileWatch.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/simulated/RecordingLog.h"
#include "tests/platform/linux/TemporaryDirectory.h"

namespace wrixel2::companion {
namespace {

namespace fs = std::filesystem;

/// On real files: the kernel tells, and the loop only waits for that.
class SettingsFileWatchTest : public testing::Test {
 protected:
  SettingsFileWatchTest() { fs::create_directory(directory_); }

  void watch() {
    auto started = SettingsFileWatch::start(loop_, file_.string(), [this] { ++changes_; });
    ASSERT_TRUE(started) << started.error().localizedDescription;
    watch_ = std::move(*started);
  }

  static void write(const fs::path& path) { std::ofstream(path) << "enabled = true\n"; }

  bool isReported() {
    const bool reported = loop_.runUntil([this] { return changes_ > 0; }, std::chrono::seconds(5));
    changes_ = 0;
    return reported;
  }

  platform::simulated::RecordingLog log_;
  platform::linux::LocalTimeZone zone_;
  platform::linux::LinuxRunLoop loop_{log_, zone_};
  platform::linux::TemporaryDirectory temporary_;
  const fs::path root_ = temporary_.path();
  const fs::path directory_ = root_ / "wrixel2";
  const fs::path file_ = directory_ / "settings.toml";
  int changes_ = 0;
  std::unique_ptr<SettingsFileWatch> watch_;
};

TEST_F(SettingsFileWatchTest, ReportsEveryWayInWhichAFileIsWrittenOrGoes) {
  watch();
  const auto moveOver = [this] {
    write(root_ / "new");
    fs::rename(root_ / "new", file_);
  };
  const auto link = [this] {
    write(root_ / "target");
    fs::create_symlink(root_ / "target", file_);
  };
  const auto replaceDirectory = [this] {
    fs::rename(directory_, root_ / "old");
    fs::create_directory(root_ / "fresh");
    write(root_ / "fresh/settings.toml");
    fs::rename(root_ / "fresh", directory_);
  };
  const std::pair<const char*, std::function<void()>> ways[] = {
      {"new file", [this] { write(file_); }},
      {"in place", [this] { write(file_); }},
      {"moved over it", moveOver},
      {"moved away", [this] { fs::rename(file_, directory_ / "settings.toml~"); }},
      {"written anew", [this] { write(file_); }},
      {"removed", [this] { fs::remove(file_); }},
      {"symbolic link", link},
      {"link removed", [this] { fs::remove(file_); }},
      {"hard link", [this] { fs::create_hard_link(root_ / "target", file_); }},
      {"directory replaced", replaceDirectory},
      {"in the new directory", [this] { write(file_); }},
  };
  for (const auto& [name, way] : ways) {
    way();
    EXPECT_TRUE(isReported()) << name;
  }
}

TEST_F(SettingsFileWatchTest, DoesNotReportWhatIsNotWrittenYet) {
  watch();
  write(directory_ / "settings.toml.swp");
  std::ofstream half(file_);
  half << "enabled = " << std::flush;
  // A change of another file that surely comes after, so that nothing has to be waited out.
  int others = 0;
  auto other =
      SettingsFileWatch::start(loop_, (directory_ / "other").string(), [&others] { ++others; });
  write(directory_ / "other");
  EXPECT_TRUE(loop_.runUntil([&others] { return others > 0; }, std::chrono::seconds(5)));
  EXPECT_EQ(changes_, 0);
  half << "true\n";
  half.close();
  EXPECT_TRUE(isReported());
}

TEST_F(SettingsFileWatchTest, NeedsTheDirectory) {
  EXPECT_FALSE(SettingsFileWatch::start(loop_, (root_ / "none/settings.toml").string(), [] {}));
}

}  // namespace
}  // namespace wrixel2::companion
