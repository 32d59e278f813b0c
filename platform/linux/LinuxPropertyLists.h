#pragma once

#include "platform/PropertyLists.h"

namespace wrixel2::platform {
class FileManager;
}

namespace wrixel2::platform::linux {

/// Property lists in files of up to 1 MiB: read by our own strict readers, because libplist 2.2
/// aborts on keys with a NUL, takes exponential time for nested references and overflows the stack
/// on deep nesting; written by libplist.
///
/// A value that the format or libplist cannot hold (a text with a NUL, a date more than 68 years
/// from 2001) makes writing fail with EINVAL and the file stay as it was. XML dates are whole
/// seconds.
class LinuxPropertyLists final : public PropertyLists {
 public:
  explicit LinuxPropertyLists(FileManager& files) : files_(files) {}

  Result<Dictionary> dictionaryWithContentsOfFile(const std::string& path) const override;
  ErrorOrNone writeToFileAtomically(const std::string& path, const Dictionary& dictionary) override;

 private:
  FileManager& files_;
};

}  // namespace wrixel2::platform::linux
