#pragma once

#include <string>
#include <vector>

#include "bandview/View.h"

namespace wrixel2::bandview {

/// The view as the lines of a terminal of that size: never more lines than it has rows, none wider
/// than it has columns. What does not fit goes in this order: old events,
/// the hint, all events, the title, facts, the menu.
///
/// Lines carry colours as ANSI escapes (ECMA-48, SGR).
std::vector<std::string> drawScreen(const View& view, TerminalSize size);

}  // namespace wrixel2::bandview
