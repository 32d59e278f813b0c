#pragma once

#include <filesystem>

#include "platform/FileManager.h"

namespace wrixel2::platform::linux {

/// Makes the directory, and those above it, where they are missing: each for the owner alone
/// (0700).
ErrorOrNone makeDirectories(const std::filesystem::path& path);

/// The file system. Only regular files are read, written and copied: a directory, device or pipe in
/// their place is an error, and nothing waits for one.
class LinuxFileManager : public FileManager {
 public:
  bool fileExistsAtPath(const std::string& path) const override;
  bool isReadableFileAtPath(const std::string& path) const override;
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(
      const std::string& path) const override;
  Result<Bytes> contentsAtPath(const std::string& path) const override;
  /// An existing file keeps its mode; behind a symbolic link it is the link's target that is
  /// replaced.
  ErrorOrNone writeAtomically(const std::string& path, ByteView contents) override;
  /// The copy has the source's mode. A copy that fails midway leaves nothing.
  ErrorOrNone copyItemAtPath(const std::string& source, const std::string& destination) override;
  /// A file, or an empty directory.
  ErrorOrNone removeItemAtPath(const std::string& path) override;
};

}  // namespace wrixel2::platform::linux
