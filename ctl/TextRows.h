#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace wrixel2::ctl {

/// The text as one line that a terminal shows and does not obey: control characters become blanks,
/// and bytes that are not UTF-8 "?".
std::string printable(std::string_view text);

/// Rows of cells as lines, each column as wide as its widest cell; two blanks lie between columns,
/// none follow the last. A character counts as one column.
std::string alignedRows(const std::vector<std::vector<std::string>>& rows);

}  // namespace wrixel2::ctl
