#pragma once

#include <string_view>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::platform::linux {

/// The value of an XML property list in UTF-8. The form is taken strictly: known elements, properly
/// nested, a key before every value of a dictionary, numbers and dates that are ones; a document
/// type with declarations of its own is refused. The error tells the line.
Result<Value> valueFromXmlPropertyList(std::string_view text);

}  // namespace wrixel2::platform::linux
