#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "companion/SettingsFileWatch.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/simulated/RecordingLog.h"

namespace wrixel2::companion {
namespace {

namespace fs = std::filesystem;

/// On real files: the kernel tells, and the loop only waits for that.
class SettingsFileWatchTest : public testing::Test {
 protected:
  SettingsFileWatchTest() {
    std::string path = fs::temp_directory_path() / "wrixel2-watch.XXXXXX";
    root_ = ::mkdtemp(path.data());
    directory_ = root_ / "wrixel2";
    file_ = directory_ / "settings.toml";
    fs::create_directory(directory_);
  }
  ~SettingsFileWatchTest() override {
    watch_.reset();
    fs::remove_all(root_);
  }

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

  /// A change of another file that surely comes after, so that nothing has to be waited out.
  bool isUnreported() {
    int others = 0;
    auto other =
        SettingsFileWatch::start(loop_, (directory_ / "other").string(), [&others] { ++others; });
    EXPECT_TRUE(other);
    write(directory_ / "other");
    EXPECT_TRUE(loop_.runUntil([&others] { return others > 0; }, std::chrono::seconds(5)));
    return changes_ == 0;
  }

  platform::simulated::RecordingLog log_;
  platform::linux::LocalTimeZone zone_;
  platform::linux::LinuxRunLoop loop_{log_, zone_};
  fs::path root_;
  fs::path directory_;
  fs::path file_;
  int changes_ = 0;
  std::unique_ptr<SettingsFileWatch> watch_;
};

TEST_F(SettingsFileWatchTest, ReportsEveryWayInWhichAFileIsWrittenOrGoes) {
  watch();
  const std::pair<const char*, std::function<void()>> ways[] = {
      {"new file", [this] { write(file_); }},
      {"in place", [this] { write(file_); }},
      {"moved over it",
       [this] {
         write(root_ / "new");
         fs::rename(root_ / "new", file_);
       }},
      {"moved away", [this] { fs::rename(file_, directory_ / "settings.toml~"); }},
      {"written anew", [this] { write(file_); }},
      {"removed", [this] { fs::remove(file_); }},
      {"symbolic link",
       [this] {
         write(root_ / "target");
         fs::create_symlink(root_ / "target", file_);
       }},
      {"link removed", [this] { fs::remove(file_); }},
      {"hard link", [this] { fs::create_hard_link(root_ / "target", file_); }},
      {"directory replaced",
       [this] {
         fs::rename(directory_, root_ / "old");
         fs::create_directory(root_ / "fresh");
         write(root_ / "fresh/settings.toml");
         fs::rename(root_ / "fresh", directory_);
       }},
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
  half << "enabled = ";
  half.flush();
  EXPECT_TRUE(isUnreported());
  half << "true\n";
  half.close();
  EXPECT_TRUE(isReported());
}

TEST_F(SettingsFileWatchTest, NeedsTheDirectory) {
  EXPECT_FALSE(SettingsFileWatch::start(loop_, (root_ / "none/settings.toml").string(), [] {}));
}

}  // namespace
}  // namespace wrixel2::companion
