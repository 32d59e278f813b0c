#pragma once

#include <string_view>
#include <vector>

#include "platform/Value.h"

namespace wrixel2::settings {

/// The names to post, in this order, when the daemon's view of the settings goes from one
/// dictionary to the other: each once, and only where keys of its own were added, removed or
/// changed.
///
/// The move reminder's comes first because the daemon compares the move keys with the ones it has,
/// and every other name makes it read all keys.
std::vector<std::string_view> preferenceChanges(const platform::Dictionary& before,
                                                const platform::Dictionary& after);

}  // namespace wrixel2::settings
