#pragma once

#include <utility>

#include <unistd.h>

namespace wrixel2::platform::linux {

/// Owns one open file descriptor; none is -1.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int number) : number_(number) {}
  FileDescriptor(FileDescriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~FileDescriptor() {
    if (number_ >= 0) {
      ::close(number_);
    }
  }

  explicit operator bool() const { return number_ >= 0; }
  int get() const { return number_; }

 private:
  int number_ = -1;
};

}  // namespace wrixel2::platform::linux
