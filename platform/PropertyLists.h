#pragma once

#include <string>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::platform {

/// Property lists, XML and binary.
class PropertyLists {
 public:
  virtual ~PropertyLists() = default;
  /// The file's dictionary. A file that is missing, damaged, nested too deeply or not a dictionary
  /// is an error.
  virtual Result<Dictionary> dictionaryWithContentsOfFile(const std::string& path) const = 0;
  /// In the form (XML or binary) that the file has, XML for a new one; replaced in one step.
  virtual ErrorOrNone writeToFileAtomically(const std::string& path,
                                            const Dictionary& dictionary) = 0;
};

}  // namespace wrixel2::platform
