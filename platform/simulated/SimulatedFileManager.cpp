#include "platform/simulated/SimulatedFileManager.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fmt/format.h>

#include "platform/Error.h"

namespace wrixel2::platform::simulated {

namespace {

constexpr std::size_t kLargestFile = std::size_t{16} << 20U;

std::string directoryOfPath(const std::string& path) { return path.substr(0, path.rfind('/')); }

std::string lastComponentOfPath(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

/// The root, and a directory given with a trailing slash, are kept under the bare path.
std::string withoutTrailingSlash(std::string path) {
  while (!path.empty() && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

}  // namespace

const SimulatedFileManager::Node* SimulatedFileManager::nodeAtPath(const std::string& path) const {
  const auto entry = nodes_.find(withoutTrailingSlash(path));
  return entry == nodes_.end() ? nullptr : &entry->second;
}

bool SimulatedFileManager::fileExistsAtPath(const std::string& path) const {
  return nodeAtPath(path) != nullptr;
}

bool SimulatedFileManager::isReadableFileAtPath(const std::string& path) const {
  const Node* const node = nodeAtPath(path);
  return node != nullptr && node->isReadable;
}

Result<std::vector<std::string>> SimulatedFileManager::contentsOfDirectoryAtPath(
    const std::string& path) const {
  const Node* const node = nodeAtPath(path);
  const std::string action = fmt::format("Listing {}", path);
  if (node == nullptr) {
    return errorFromErrno(ENOENT, action);
  }
  if (!node->isDirectory) {
    return errorFromErrno(ENOTDIR, action);
  }
  if (!node->isReadable) {
    return errorFromErrno(EACCES, action);
  }
  return node->entries;
}

Result<Bytes> SimulatedFileManager::contentsAtPath(const std::string& path) const {
  const Node* const node = nodeAtPath(path);
  const std::string action = fmt::format("Reading {}", path);
  if (node == nullptr) {
    return errorFromErrno(ENOENT, action);
  }
  if (node->isDirectory) {
    return errorFromErrno(EISDIR, action);
  }
  if (!node->isReadable) {
    return errorFromErrno(EACCES, action);
  }
  if (node->contents.size() > kLargestFile) {
    return errorFromErrno(EFBIG, action);
  }
  return node->contents;
}

ErrorOrNone SimulatedFileManager::writeErrorAtPath(const std::string& path) const {
  const auto entry = writeErrors_.find(path);
  if (entry == writeErrors_.end()) {
    return std::nullopt;
  }
  return errorFromErrno(entry->second, fmt::format("Writing {}", path));
}

ErrorOrNone SimulatedFileManager::writeAtomically(const std::string& path, ByteView contents) {
  if (auto error = writeErrorAtPath(path)) {
    return error;
  }
  const Node* const node = nodeAtPath(path);
  if (node != nullptr && node->isDirectory) {
    return errorFromErrno(EISDIR, fmt::format("Writing {}", path));
  }
  put(path, {false, true, Bytes(contents.begin(), contents.end()), {}});
  return std::nullopt;
}

ErrorOrNone SimulatedFileManager::copyItemAtPath(const std::string& source,
                                                 const std::string& destination) {
  auto contents = contentsAtPath(source);
  if (!contents) {
    return contents.error();
  }
  if (fileExistsAtPath(destination)) {
    return errorFromErrno(EEXIST, fmt::format("Copying {} to {}", source, destination));
  }
  return writeAtomically(destination, *contents);
}

ErrorOrNone SimulatedFileManager::removeItemAtPath(const std::string& path) {
  if (auto error = writeErrorAtPath(path)) {
    return error;
  }
  const std::string bare = withoutTrailingSlash(path);
  if (nodeAtPath(bare) == nullptr) {
    return errorFromErrno(ENOENT, fmt::format("Removing {}", path));
  }
  std::erase_if(nodes_, [&bare](const auto& entry) {
    return entry.first == bare || entry.first.starts_with(bare + "/");
  });
  if (const auto above = nodes_.find(directoryOfPath(bare)); above != nodes_.end()) {
    std::erase(above->second.entries, lastComponentOfPath(bare));
  }
  return std::nullopt;
}

void SimulatedFileManager::addFile(const std::string& path, std::string_view contents) {
  put(path, {false, true, bytesOfText(contents), {}});
}

void SimulatedFileManager::addDirectory(const std::string& path) {
  put(withoutTrailingSlash(path), {true, true, {}, {}});
}

void SimulatedFileManager::put(const std::string& path, Node node) {
  if (!path.empty()) {
    const std::string directory = directoryOfPath(path);
    if (nodeAtPath(directory) == nullptr) {
      addDirectory(directory);
    }
    auto& entries = nodes_[directory].entries;
    const std::string name = lastComponentOfPath(path);
    if (std::ranges::find(entries, name) == entries.end()) {
      entries.push_back(name);
    }
  }
  nodes_[path] = std::move(node);
}

void SimulatedFileManager::setIsReadable(const std::string& path, bool isReadable) {
  if (const auto entry = nodes_.find(path); entry != nodes_.end()) {
    entry->second.isReadable = isReadable;
  }
}

void SimulatedFileManager::setWriteError(const std::string& path, int number) {
  if (number == 0) {
    writeErrors_.erase(path);
  } else {
    writeErrors_[path] = number;
  }
}

std::optional<std::string> SimulatedFileManager::textAtPath(const std::string& path) const {
  const Node* const node = nodeAtPath(path);
  if (node == nullptr || node->isDirectory) {
    return std::nullopt;
  }
  return std::string(node->contents.begin(), node->contents.end());
}

}  // namespace wrixel2::platform::simulated
