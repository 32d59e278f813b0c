#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.h"
#include "platform/Result.h"

namespace wrixel2::ctl {

/// "14:30" of the same local day, else "2026-11-24 14:30".
std::string shortTime(platform::Date date, platform::Date now, const platform::TimeZone& zone);
/// The same of Unix seconds at which the daemon will do something; 0 is "not planned".
std::string plannedTime(std::int64_t unixSeconds, platform::Date now,
                        const platform::TimeZone& zone);
/// "2026-11-24 14:30:05"
std::string localTime(platform::Date date, const platform::TimeZone& zone);
/// "14:30:05"
std::string timeOfDay(platform::Date date, const platform::TimeZone& zone);
/// "2026-11-24T14:30:05+01:00" (RFC 3339)
std::string internetTime(platform::Date date, const platform::TimeZone& zone);

/// What people write for a moment: "90m", "2h", "3d", "2w" (so long ago), "now", "today",
/// "yesterday", "2026-11-24", "2026-11-24 14:30" with seconds or a T if they like, in local time.
/// Fails with what would be right.
platform::Result<platform::Date> momentFromText(std::string_view text, platform::Date now,
                                                const platform::TimeZone& zone);

}  // namespace wrixel2::ctl
