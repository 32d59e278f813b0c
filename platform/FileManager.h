#pragma once

#include <string>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Result.h"

namespace wrixel2::platform {

/// Files, by absolute path. Errors carry errno's number and a sentence that names the path.
class FileManager {
 public:
  virtual ~FileManager() = default;

  virtual bool fileExistsAtPath(const std::string& path) const = 0;
  virtual bool isReadableFileAtPath(const std::string& path) const = 0;
  /// Entry names in the order in which the file system returns them, without "." and "..".
  virtual Result<std::vector<std::string>> contentsOfDirectoryAtPath(
      const std::string& path) const = 0;
  /// Files above 16 MiB are refused.
  virtual Result<Bytes> contentsAtPath(const std::string& path) const = 0;
  /// Replaces the file in one step and makes it durable, so that a crash leaves the old content or
  /// the new; missing directories are made (mode 0700, files 0600).
  virtual ErrorOrNone writeAtomically(const std::string& path, ByteView contents) = 0;
  /// Fails when the destination exists.
  virtual ErrorOrNone copyItemAtPath(const std::string& source, const std::string& destination) = 0;
  virtual ErrorOrNone removeItemAtPath(const std::string& path) = 0;
};

}  // namespace wrixel2::platform
