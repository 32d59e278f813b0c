#include "platform/simulated/SimulatedPropertyLists.h"

#include <cerrno>
#include <charconv>
#include <string_view>

#include <fmt/format.h>

#include "platform/simulated/SimulatedFileManager.h"

namespace wrixel2::platform::simulated {

namespace {

constexpr std::string_view kPrefix = "simulated property list ";

}  // namespace

std::string SimulatedPropertyLists::contentsFor(const Dictionary& dictionary) {
  written_.push_back(dictionary);
  return fmt::format("{}{}", kPrefix, written_.size() - 1);
}

Result<Dictionary> SimulatedPropertyLists::dictionaryWithContentsOfFile(
    const std::string& path) const {
  const auto contents = files_.contentsAtPath(path);
  if (!contents) {
    return contents.error();
  }
  const std::string text(contents->begin(), contents->end());
  if (text.starts_with(kPrefix)) {
    std::size_t number = 0;
    const char* const first = text.data() + kPrefix.size();
    const char* const last = text.data() + text.size();
    const auto [end, status] = std::from_chars(first, last, number);
    if (status == std::errc{} && end == last && number < written_.size()) {
      return written_[number];
    }
  }
  return Error{EINVAL, fmt::format("{} is not a property list", path)};
}

ErrorOrNone SimulatedPropertyLists::writeToFileAtomically(const std::string& path,
                                                          const Dictionary& dictionary) {
  return files_.writeAtomically(path, bytesOfText(contentsFor(dictionary)));
}

void SimulatedPropertyLists::setDictionary(const std::string& path, const Dictionary& dictionary) {
  files_.addFile(path, contentsFor(dictionary));
}

std::optional<Dictionary> SimulatedPropertyLists::dictionary(const std::string& path) const {
  auto found = dictionaryWithContentsOfFile(path);
  return found ? std::optional<Dictionary>(*found) : std::nullopt;
}

}  // namespace wrixel2::platform::simulated
