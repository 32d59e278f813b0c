#pragma once

#include <source_location>
#include <string_view>

namespace wrixel2::fuzz {

/// Ends the run, so that the input is kept, when what should always hold does not. The words say
/// what should.
void check(bool holds, std::string_view words,
           std::source_location where = std::source_location::current());

}  // namespace wrixel2::fuzz
