#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/Log.h"
#include "platform/linux/LinuxFileManager.h"

namespace wrixel2::platform {
class BackgroundWork;
}

namespace wrixel2::platform::linux {

/// Files whose writing nobody waits for: writeAtomically() returns at once and without an error,
/// and writes beside the loop. Of several contents for one file that wait, the last counts. A
/// failure is a line in the log, once for each time that writing a file begins to fail; what could
/// not be written is tried again at the end, unless newer contents have taken its place.
///
/// Until it is written, reading finds the old contents.
class BackgroundFileManager final : public LinuxFileManager {
 public:
  /// Both outlive it.
  BackgroundFileManager(BackgroundWork& work, Log& log)
      : work_(work), logger_(log, "BackgroundFileManager") {}
  BackgroundFileManager(const BackgroundFileManager&) = delete;
  BackgroundFileManager& operator=(const BackgroundFileManager&) = delete;
  ~BackgroundFileManager() override;

  ErrorOrNone writeAtomically(const std::string& path, ByteView contents) override;

 private:
  using Contents = std::shared_ptr<const Bytes>;
  struct File {
    Contents due;  ///< none: nothing is
    bool isBeingWritten = false;
    bool isFailing = false;
  };

  void write(const std::string& path, File& file);
  void written(const std::string& path, Contents contents, const ErrorOrNone& error);

  BackgroundWork& work_;
  Logger logger_;
  std::map<std::string, File> files_;
  /// Tells what comes back from background work whether this is there still.
  std::shared_ptr<BackgroundFileManager*> self_ = std::make_shared<BackgroundFileManager*>(this);
};

}  // namespace wrixel2::platform::linux
