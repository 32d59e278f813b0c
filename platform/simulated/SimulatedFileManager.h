#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/FileManager.h"

namespace wrixel2::platform::simulated {

/// Files in memory, with the real one's rules and errors.
class SimulatedFileManager final : public FileManager {
 public:
  bool fileExistsAtPath(const std::string& path) const override;
  bool isReadableFileAtPath(const std::string& path) const override;
  /// In the order in which the entries were made.
  Result<std::vector<std::string>> contentsOfDirectoryAtPath(
      const std::string& path) const override;
  Result<Bytes> contentsAtPath(const std::string& path) const override;
  ErrorOrNone writeAtomically(const std::string& path, ByteView contents) override;
  ErrorOrNone copyItemAtPath(const std::string& source, const std::string& destination) override;
  /// A directory goes with everything in it.
  ErrorOrNone removeItemAtPath(const std::string& path) override;

  /// Both make the directories above, and replace what is there.
  void addFile(const std::string& path, std::string_view contents = {});
  void addDirectory(const std::string& path);
  /// An unreadable file or directory exists but cannot be looked into.
  void setIsReadable(const std::string& path, bool isReadable);
  /// From now on writing, copying to and removing this path fail with errno's number; 0 ends it.
  void setWriteError(const std::string& path, int number);
  /// The file's contents as text; none when there is no such file.
  std::optional<std::string> textAtPath(const std::string& path) const;

 private:
  struct Node {
    bool isDirectory = false;
    bool isReadable = true;
    Bytes contents;
    std::vector<std::string> entries;  ///< of a directory
  };

  const Node* nodeAtPath(const std::string& path) const;
  ErrorOrNone writeErrorAtPath(const std::string& path) const;
  void put(const std::string& path, Node node);

  std::map<std::string, Node> nodes_;
  std::map<std::string, int> writeErrors_;
};

}  // namespace wrixel2::platform::simulated
