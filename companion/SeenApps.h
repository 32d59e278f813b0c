#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Clock.h"
#include "platform/Log.h"
#include "platform/PropertyLists.h"
#include "platform/RunLoop.h"

namespace wrixel2::companion {

/// An app that has notified. Times are Unix seconds.
struct SeenApp {
  std::string identifier;
  std::string name;  ///< what it last called itself; may be empty
  std::int64_t count = 0;
  std::int64_t first = 0;
  std::int64_t last = 0;

  friend bool operator==(const SeenApp&, const SeenApp&) = default;
};

/// The apps that have notified, kept in a file over restarts: who they are and how often, never
/// what they said.
///
/// The file is a property list {"apps": [{"id", "name", "count", "first", "last"}, ...]}. A new app
/// is written at once; the rest while it changes every ten minutes, and when this is destroyed.
class SeenApps {
 public:
  /// More apps than a phone has: one that makes identifiers up pushes out who was silent longest.
  static constexpr std::size_t kMostApps = 256;
  static constexpr platform::TimeInterval kWriteInterval = std::chrono::minutes(10);

  /// All but the path is borrowed.
  SeenApps(platform::RunLoop& loop, const platform::Clock& clock, platform::PropertyLists& lists,
           platform::Log& log, std::string path);
  SeenApps(const SeenApps&) = delete;
  SeenApps& operator=(const SeenApps&) = delete;
  ~SeenApps();

  /// Reads the file. One that cannot be read is reported, and is replaced by the next writing.
  void load();

  /// An app has notified. Identifiers that no app has (empty, very long, with control characters)
  /// are left out.
  void noted(const std::string& identifier, const std::string& name);

  /// Who was silent longest comes first.
  const std::vector<SeenApp>& apps() const { return apps_; }

 private:
  void add(SeenApp app);
  void write();

  platform::RunLoop& loop_;
  const platform::Clock& clock_;
  platform::PropertyLists& lists_;
  platform::Logger logger_;
  std::string path_;
  std::vector<SeenApp> apps_;
  bool isChanged_ = false;
  bool isFailureLogged_ = false;
  std::unique_ptr<platform::Timer> laterWrite_;
};

}  // namespace wrixel2::companion
