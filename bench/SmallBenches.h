#pragma once

#include "bench/Extent.h"
#include "bench/Report.h"

namespace wrixel2::bench {

/// Times single operations with Google Benchmark, its repetitions of all of them in random order:
/// the forwarding decision, payloads, identifiers, the authentication's answer, the next firing of
/// the move reminder, a log line and a stored sample.
void measureSmallThings(const Extent& extent, Report& report);

}  // namespace wrixel2::bench
