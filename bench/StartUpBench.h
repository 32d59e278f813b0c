#pragma once

#include "bench/Extent.h"
#include "bench/Report.h"
#include "bench/Session.h"

namespace wrixel2::bench {

/// From the moment in which a program is started to the one in which the bus has its name: the
/// daemon and the least one, in turn.
void measureStartUp(Session& session, const Programs& programs, const Extent& extent,
                    Report& report);

}  // namespace wrixel2::bench
