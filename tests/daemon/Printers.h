#pragma once

#include <ostream>

#include "daemon/ForwardingRules.h"

namespace wrixel2::daemon {

// For the messages of failed comparisons.
inline void PrintTo(ForwardingRule rule, std::ostream* out) {
  *out << "rule " << static_cast<int>(rule);
}
inline void PrintTo(const BandAlert& alert, std::ostream* out) {
  *out << alert.repeat << '/' << alert.icon << '/' << alert.pattern << '/'
       << alert.text.value_or("no text");
}

}  // namespace wrixel2::daemon
