// Values written to a property list file and read again, in both forms.

#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/linux/BinaryPropertyList.h"
#include "platform/linux/BusText.h"
#include "platform/linux/LinuxPropertyLists.h"
#include "platform/simulated/SimulatedFileManager.h"

namespace wrixel2::fuzz {
namespace {

using platform::Dictionary;
using platform::Value;

/// What a list holds of a value: reals that are no numbers are equal to nothing, not even
/// themselves, and are left out.
bool isComparable(const Value& value) {
  if (const auto* real = std::get_if<double>(&value.variant())) {
    return *real == *real;
  }
  if (const auto* array = value.array()) {
    return std::ranges::all_of(*array, isComparable);
  }
  if (const auto* entries = value.dictionary()) {
    return std::ranges::all_of(*entries,
                               [](const auto& entry) { return isComparable(entry.second); });
  }
  return true;
}

/// An empty dictionary in the binary form: a file that is to be kept in it.
constexpr std::string_view kBinaryFile(
    "bplist00\xD0\x08\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\x09", 42);

void writeAndRead(const Dictionary& dictionary, bool isBinary) {
  platform::simulated::SimulatedFileManager files;
  platform::linux::LinuxPropertyLists lists(files);
  const std::string path = "/values.plist";
  if (isBinary) {
    files.addFile(path, kBinaryFile);
    check(static_cast<bool>(lists.dictionaryWithContentsOfFile(path)),
          "the file of the start is good");
  }
  const auto before = files.contentsAtPath(path);
  if (lists.writeToFileAtomically(path, dictionary)) {
    const auto after = files.contentsAtPath(path);
    check(static_cast<bool>(before) == static_cast<bool>(after) && (!before || *before == *after),
          "a list that cannot be written leaves the file as it was");
    return;
  }
  const auto read = lists.dictionaryWithContentsOfFile(path);
  check(static_cast<bool>(read), "what was written is readable");
  check(platform::linux::isBinaryPropertyList(*files.contentsAtPath(path)) == isBinary,
        "the form stays");
  check(!isComparable(dictionary) || *read == dictionary, "what was written reads back equal");
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  const bool isBinary = input.flag();
  writeAndRead(input.dictionary({}, 4), isBinary);
  return 0;
}
