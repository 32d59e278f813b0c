#pragma once

#include <string>

#include "ctl/HeartRateText.h"
#include "platform/Date.h"

namespace wrixel2::ctl {

/// What a plot shows, and how much room it has.
struct PlotFrame {
  platform::Date from;
  platform::Date until;
  int columns = 80;
  bool isUtf8 = true;  ///< braille dots, else plain ASCII
};

/// The samples over time with axes, as lines for a terminal. Neighbours are joined, except over
/// gaps: pauses of much more than the usual time between two samples.
std::string heartRatePlot(const Samples& samples, const PlotFrame& frame,
                          const platform::TimeZone& zone);

}  // namespace wrixel2::ctl
