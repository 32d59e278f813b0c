#include "platform/linux/LinuxFileManager.h"

#include <array>
#include <filesystem>
#include <memory>
#include <utility>

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {
namespace {

constexpr std::size_t kMaximumSize = std::size_t{16} << 20;
// What a file is read by. The files are small, and a process keeps what its start has touched.
constexpr std::size_t kBlockSize = 4096;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kDirectoryMode = 0700;
constexpr int kMaximumLinks = 40;  // as many as the kernel follows

Error fileError(int number, std::string_view verb, const std::string& path) {
  return errorFromErrno(number, fmt::format("{} cannot be {}", path, verb));
}

// Opened without waiting for a pipe's other end, and only if it is a regular file.
Result<FileDescriptor> openRegularFile(const std::string& path) {
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  struct stat status{};
  if (!file || ::fstat(file.get(), &status) != 0) {
    return fileError(errno, "read", path);
  }
  if (S_ISDIR(status.st_mode)) {
    return fileError(EISDIR, "read", path);
  }
  if (!S_ISREG(status.st_mode)) {
    return Error{EINVAL, fmt::format("{} cannot be read: it is not a regular file", path)};
  }
  return file;
}

// Reads into the buffer, 0 at the end; -1 with errno set.
ssize_t readSome(int file, std::uint8_t* buffer, std::size_t size) {
  ssize_t count = 0;
  do {
    count = ::read(file, buffer, size);
  } while (count < 0 && errno == EINTR);
  return count;
}

bool writeAll(int file, ByteView bytes) {
  while (!bytes.empty()) {
    const auto written = ::write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      return false;
    }
    bytes = bytes.subspan(written < 0 ? 0 : static_cast<std::size_t>(written));
  }
  return true;
}

// Where the file itself is, behind symbolic links; it need not exist.
Result<std::filesystem::path> linkTarget(const std::string& path) {
  std::filesystem::path target(path);
  for (int links = 0; links < kMaximumLinks; ++links) {
    std::error_code error;
    const auto next = std::filesystem::read_symlink(target, error);
    if (error) {
      return target;  // not a link; whatever else is wrong shows when it is used
    }
    target = target.parent_path() / next;
  }
  return fileError(ELOOP, "written", path);
}

// A file beside the target, because a rename does not cross file systems: always the same one, so
// that what a kill leaves is taken up by the next write. Who writes has it locked; another one at
// the same time, or one where nothing can be locked, writes to a file of its own.
struct UnfinishedFile {
  std::string path;
  FileDescriptor file;
};

UnfinishedFile openUnfinished(const std::filesystem::path& target) {
  constexpr std::size_t kMostOfName = 200;
  UnfinishedFile unfinished{
      target.parent_path() / (".unfinished-" + target.filename().string().substr(0, kMostOfName)),
      {}};
  unfinished.file =
      FileDescriptor(::open(unfinished.path.c_str(),
                            O_WRONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kFileMode));
  struct stat opened{};
  struct stat named{};
  // Between the two calls somebody may have renamed it to what it is now the target of.
  if (unfinished.file && ::flock(unfinished.file.get(), LOCK_EX | LOCK_NB) == 0 &&
      ::fstat(unfinished.file.get(), &opened) == 0 && S_ISREG(opened.st_mode) &&
      ::lstat(unfinished.path.c_str(), &named) == 0 && opened.st_dev == named.st_dev &&
      opened.st_ino == named.st_ino && ::ftruncate(unfinished.file.get(), 0) == 0) {
    return unfinished;
  }
  unfinished.path = target.parent_path() / ".unfinished-XXXXXX";
  unfinished.file = FileDescriptor(::mkostemp(unfinished.path.data(), O_CLOEXEC));
  return unfinished;
}

// A renamed or new entry lasts once its directory is on the disk. Some file systems cannot do
// that for directories; theirs last anyway or not at all.
void synchronizeDirectory(const std::filesystem::path& directory) {
  const FileDescriptor handle(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (handle) {
    ::fsync(handle.get());
  }
}

// Removes the file at its end, unless told to keep it.
class RemovedAtEnd {
 public:
  explicit RemovedAtEnd(std::string path) : path_(std::move(path)) {}
  RemovedAtEnd(const RemovedAtEnd&) = delete;
  RemovedAtEnd& operator=(const RemovedAtEnd&) = delete;
  ~RemovedAtEnd() {
    if (!path_.empty()) {
      ::unlink(path_.c_str());
    }
  }
  void keep() { path_.clear(); }

 private:
  std::string path_;
};

}  // namespace

ErrorOrNone makeDirectories(const std::filesystem::path& path) {
  if (path.empty() || ::mkdir(path.c_str(), kDirectoryMode) == 0 || errno == EEXIST) {
    return std::nullopt;
  }
  if (errno != ENOENT || !path.has_relative_path()) {
    return fileError(errno, "made", path);
  }
  if (auto error = makeDirectories(path.parent_path())) {
    return error;
  }
  if (::mkdir(path.c_str(), kDirectoryMode) != 0 && errno != EEXIST) {
    return fileError(errno, "made", path);
  }
  return std::nullopt;
}

bool LinuxFileManager::fileExistsAtPath(const std::string& path) const {
  struct stat status{};
  return ::stat(path.c_str(), &status) == 0;
}

bool LinuxFileManager::isReadableFileAtPath(const std::string& path) const {
  return ::access(path.c_str(), R_OK) == 0;
}

Result<std::vector<std::string>> LinuxFileManager::contentsOfDirectoryAtPath(
    const std::string& path) const {
  const auto close = [](DIR* directory) { ::closedir(directory); };
  const std::unique_ptr<DIR, decltype(close)> directory(::opendir(path.c_str()), close);
  if (!directory) {
    return fileError(errno, "listed", path);
  }
  std::vector<std::string> names;
  errno = 0;
  while (const dirent* entry = ::readdir(directory.get())) {
    const std::string name(entry->d_name);
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  if (errno != 0) {
    return fileError(errno, "listed", path);
  }
  return names;
}

Result<Bytes> LinuxFileManager::contentsAtPath(const std::string& path) const {
  const auto file = openRegularFile(path);
  if (!file) {
    return file.error();
  }
  Bytes contents;
  std::array<std::uint8_t, kBlockSize> block;
  while (true) {
    const auto count = readSome(file->get(), block.data(), block.size());
    if (count < 0) {
      return fileError(errno, "read", path);
    }
    if (count == 0) {
      return contents;
    }
    contents.insert(contents.end(), block.begin(), block.begin() + count);
    if (contents.size() > kMaximumSize) {
      return fileError(EFBIG, "read", path);
    }
  }
}

ErrorOrNone LinuxFileManager::writeAtomically(const std::string& path, ByteView contents) {
  const auto target = linkTarget(path);
  if (!target) {
    return target.error();
  }
  const auto directory = target->parent_path();
  if (auto error = makeDirectories(directory)) {
    return error;
  }
  mode_t mode = kFileMode;
  struct stat status{};
  if (::lstat(target->c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) {
      return Error{EINVAL, fmt::format("{} cannot be written: it is not a regular file", path)};
    }
    mode = status.st_mode & 07777;
  }
  const auto [unfinished, file] = openUnfinished(*target);
  if (!file) {
    return fileError(errno, "written", path);
  }
  RemovedAtEnd guard(unfinished);
  if (!writeAll(file.get(), contents) || ::fchmod(file.get(), mode) != 0 ||
      ::fsync(file.get()) != 0 || ::rename(unfinished.c_str(), target->c_str()) != 0) {
    return fileError(errno, "written", path);
  }
  guard.keep();
  synchronizeDirectory(directory);
  return std::nullopt;
}

ErrorOrNone LinuxFileManager::copyItemAtPath(const std::string& source,
                                             const std::string& destination) {
  const auto from = openRegularFile(source);
  if (!from) {
    return from.error();
  }
  struct stat status{};
  ::fstat(from->get(), &status);
  const FileDescriptor to(
      ::open(destination.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kFileMode));
  if (!to) {
    return fileError(errno, "made", destination);
  }
  RemovedAtEnd guard(destination);
  std::array<std::uint8_t, kBlockSize> block;
  while (true) {
    const auto count = readSome(from->get(), block.data(), block.size());
    if (count < 0) {
      return fileError(errno, "read", source);
    }
    if (count == 0) {
      break;
    }
    if (!writeAll(to.get(), ByteView(block.data(), static_cast<std::size_t>(count)))) {
      return fileError(errno, "written", destination);
    }
  }
  if (::fchmod(to.get(), status.st_mode & 0777) != 0 || ::fsync(to.get()) != 0) {
    return fileError(errno, "written", destination);
  }
  guard.keep();
  synchronizeDirectory(std::filesystem::path(destination).parent_path());
  return std::nullopt;
}

ErrorOrNone LinuxFileManager::removeItemAtPath(const std::string& path) {
  if (::remove(path.c_str()) != 0) {
    return fileError(errno, "removed", path);
  }
  return std::nullopt;
}

}  // namespace wrixel2::platform::linux
