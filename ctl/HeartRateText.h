#pragma once

#include <string>
#include <vector>

#include "platform/Date.h"
#include "platform/HealthStore.h"

namespace wrixel2::ctl {

using Samples = std::vector<platform::QuantitySample>;

/// A line for each measurement, and one that sums them up.
std::string heartRateLines(const Samples& samples, const platform::TimeZone& zone);
/// Comma-separated values with a header (RFC 4180, with plain line feeds): time (RFC 3339), Unix
/// seconds and beats per minute.
std::string heartRateCsv(const Samples& samples, const platform::TimeZone& zone);
/// A JSON array of {"time", "unix", "heartRate"}.
std::string heartRateJson(const Samples& samples, const platform::TimeZone& zone);
/// Open mHealth data points of the schema omh:heart-rate:2.0, as a JSON array. A sample has the
/// same identifier in every export.
std::string heartRateDataPoints(const Samples& samples, const platform::TimeZone& zone);

}  // namespace wrixel2::ctl
