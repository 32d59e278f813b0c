// Binary property lists, as they lie in the files of other programs.

#include "platform/linux/BinaryPropertyList.h"

#include <algorithm>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/Utf8.h"
#include "platform/linux/PropertyListLimits.h"

namespace wrixel2::fuzz {
namespace {

/// How deep the value is; every text in it is looked at on the way.
int depthOf(const platform::Value& value) {
  int deepest = 0;
  if (const auto* text = value.text()) {
    check(platform::isUtf8(*text), "texts are UTF-8");
  } else if (const auto* array = value.array()) {
    for (const auto& item : *array) {
      deepest = std::max(deepest, 1 + depthOf(item));
    }
  } else if (const auto* dictionary = value.dictionary()) {
    for (const auto& [key, item] : *dictionary) {
      check(platform::isUtf8(key), "keys are UTF-8");
      deepest = std::max(deepest, 1 + depthOf(item));
    }
  }
  return deepest;
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2;  // NOLINT(google-build-using-namespace)
  const auto value = platform::linux::valueFromBinaryPropertyList(platform::ByteView(data, size));
  fuzz::check(value || !value.error().localizedDescription.empty(), "an error has words");
  if (value) {
    fuzz::check(fuzz::depthOf(*value) <= platform::linux::kMaximumPropertyListDepth,
                "nesting is bounded");
  }
  return 0;
}
