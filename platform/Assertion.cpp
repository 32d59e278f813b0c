#include "platform/Assertion.h"

#include <cstdio>
#include <cstdlib>

namespace wrixel2::platform {

void assertionFailure(std::string_view message) {
  std::fprintf(stderr, "Assertion failed: %.*s\n", static_cast<int>(message.size()),
               message.data());
  std::abort();
}

}  // namespace wrixel2::platform
