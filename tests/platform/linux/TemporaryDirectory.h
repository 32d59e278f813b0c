#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include <stdlib.h>

namespace wrixel2::platform::linux {

/// A directory of the test's own, removed with all that is in it.
class TemporaryDirectory {
 public:
  TemporaryDirectory() {
    std::string name = std::filesystem::temp_directory_path() / "wrixel2-test-XXXXXX";
    path_ = ::mkdtemp(name.data());
  }
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  ~TemporaryDirectory() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }

  std::string path(std::string_view name = {}) const { return path_ / name; }

  /// Makes the file and returns its path.
  std::string write(std::string_view name, std::string_view contents) const {
    const std::string file = path(name);
    std::ofstream(file, std::ios::binary) << contents;
    return file;
  }

  std::size_t entryCount() const {
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
  }

 private:
  std::filesystem::path path_;
};

}  // namespace wrixel2::platform::linux
