#include "platform/linux/BackgroundFileManager.h"

#include <utility>

#include <fmt/format.h>

#include "platform/BackgroundWork.h"

namespace wrixel2::platform::linux {

BackgroundFileManager::~BackgroundFileManager() {
  for (auto& [path, file] : files_) {
    write(path, file);
  }
}

ErrorOrNone BackgroundFileManager::writeAtomically(const std::string& path, ByteView contents) {
  File& file = files_[path];
  file.due = std::make_shared<const Bytes>(contents.begin(), contents.end());
  if (!file.isBeingWritten) {
    write(path, file);
  }
  return std::nullopt;
}

void BackgroundFileManager::write(const std::string& path, File& file) {
  const Contents contents = std::exchange(file.due, nullptr);
  if (contents == nullptr) {
    return;
  }
  file.isBeingWritten = work_.run([path, contents, weak = std::weak_ptr(self_)]() -> Task {
    const auto error = LinuxFileManager().writeAtomically(path, *contents);
    return [path, contents, weak, error] {
      if (const auto self = weak.lock()) {
        (*self)->written(path, contents, error);
      }
    };
  });
  if (!file.isBeingWritten) {
    file.due = contents;
  }
}

void BackgroundFileManager::written(const std::string& path, Contents contents,
                                    const ErrorOrNone& error) {
  File& file = files_[path];
  file.isBeingWritten = false;
  if (error && !file.isFailing) {
    logger_.error(description(*error));
  }
  file.isFailing = error.has_value();
  if (file.due != nullptr) {
    write(path, file);
  } else if (error) {
    file.due = std::move(contents);
  }
}

}  // namespace wrixel2::platform::linux
