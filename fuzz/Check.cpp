#include "fuzz/Check.h"

#include <cstdlib>

#include <fmt/format.h>

namespace wrixel2::fuzz {

void check(bool holds, std::string_view words, std::source_location where) {
  if (!holds) {
    fmt::print(stderr, "{}:{}: does not hold: {}\n", where.file_name(), where.line(), words);
    std::abort();
  }
}

}  // namespace wrixel2::fuzz
