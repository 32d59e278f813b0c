// XML property lists, as they lie in the files of other programs.

#include "platform/linux/XmlPropertyList.h"

#include "fuzz/Check.h"
#include "fuzz/Input.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2;  // NOLINT(google-build-using-namespace)
  const auto text = fuzz::Input(data, size).restAsText();
  const auto value = platform::linux::valueFromXmlPropertyList(text);
  if (!value) {
    fuzz::check(!value.error().localizedDescription.empty(), "an error has words");
    return 0;
  }
  // Blanks at the end and a comment in front say nothing.
  const auto again = platform::linux::valueFromXmlPropertyList(std::string(text) + "\n<!-- -->");
  fuzz::check(again && kindName(*again) == kindName(*value), "what surrounds a list says nothing");
  return 0;
}
