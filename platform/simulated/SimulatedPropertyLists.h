#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyLists.h"

namespace wrixel2::platform::simulated {

class SimulatedFileManager;

/// Property lists as files of the simulated file manager. A file's contents stand for a dictionary
/// that was written here, so that copying, removing and overwriting the file do what they should;
/// any other contents are a damaged property list.
class SimulatedPropertyLists final : public PropertyLists {
 public:
  /// The files are borrowed.
  explicit SimulatedPropertyLists(SimulatedFileManager& files) : files_(files) {}

  Result<Dictionary> dictionaryWithContentsOfFile(const std::string& path) const override;
  ErrorOrNone writeToFileAtomically(const std::string& path, const Dictionary& dictionary) override;

  /// For tests: the same, without errors.
  void setDictionary(const std::string& path, const Dictionary& dictionary);
  std::optional<Dictionary> dictionary(const std::string& path) const;

 private:
  std::string contentsFor(const Dictionary& dictionary);

  SimulatedFileManager& files_;
  std::vector<Dictionary> written_;  ///< by the number that stands in the file
};

}  // namespace wrixel2::platform::simulated
