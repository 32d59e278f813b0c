#pragma once

#include <cstddef>
#include <string_view>

namespace wrixel2::mbmodel {

/// The text without blanks and line breaks (Unicode's separators, tab, U+000A to U+000D and U+0085)
/// at its ends; a part of the given one.
std::string_view trimmed(std::string_view text);

/// How many UTF-16 code units the text would have. A byte that is not UTF-8 counts as one.
std::size_t utf16Length(std::string_view text);

}  // namespace wrixel2::mbmodel
