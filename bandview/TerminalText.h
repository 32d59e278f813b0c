#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Texts as a terminal shows them. Widths are in columns, of characters as wcwidth(3) knows them;
/// the process has a UTF-8 locale for LC_CTYPE.
namespace wrixel2::bandview {

/// The text as one line that a terminal shows and does not obey: control characters, which could
/// move its cursor, become blanks, and bytes that are not UTF-8 "?".
std::string printable(std::string_view text);

/// Of a printable text.
int widthOf(std::string_view text);

/// Exactly so many columns: the rest is cut, or blanks are added.
std::string fitted(std::string_view text, int columns);
std::string centred(std::string_view text, int columns);

/// Lines of at most so many columns, broken at blanks where there are any.
std::vector<std::string> wrapped(std::string_view text, int columns);

}  // namespace wrixel2::bandview
