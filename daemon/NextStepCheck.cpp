#include "daemon/NextStepCheck.h"

#include <chrono>

#include "daemon/MoveWindow.h"

namespace wrixel2::daemon {

namespace {

using platform::Date;
using platform::DateComponents;
using platform::TimeZone;

constexpr std::uint64_t kLastHour = 23;
constexpr int kSunday = 1;
constexpr int kSaturday = 7;
/// Keeps a reading that comes a moment early from being asked for again in the same hour.
constexpr std::chrono::seconds kMargin{2};

bool isUsable(const MoveSettings& settings) {
  return moveWindowFault(settings) == MoveWindowFault::none && settings.remindPeriod > 0 &&
         settings.remindPeriod <= kLastHour && settings.startSteps <= kLastHour &&
         settings.endSteps <= kLastHour;
}

/// The days until the next window opens; none inside the window.
std::optional<std::uint64_t> daysToNextWindow(const DateComponents& now,
                                              const MoveSettings& settings) {
  const auto hour = static_cast<std::uint64_t>(now.hour);
  const auto start = settings.startSteps;
  const auto end = settings.endSteps;
  const auto periodEnd = hour + settings.remindPeriod;
  const bool spansMidnight = start > end;

  if (settings.onlyWeekdays && now.weekday == kSaturday) {
    return 2;
  }
  if (settings.onlyWeekdays && now.weekday == kSunday) {
    return 1;
  }
  if (hour < start && !spansMidnight) {
    return 0;
  }
  if (hour < start && periodEnd > end) {
    return 0;
  }
  if (periodEnd > end && !spansMidnight) {
    return 1;
  }
  return std::nullopt;
}

Date windowStart(const DateComponents& now, std::uint64_t days, std::uint64_t startHour,
                 const TimeZone& zone) {
  auto components = now;
  components.day += static_cast<int>(days);
  components.second += static_cast<int>(kMargin.count());
  // Once through the calendar, so that what rolls over counts before the hour is set.
  components = componentsFromDate(dateFromComponents(components, zone), zone);
  components.hour = static_cast<int>(startHour);
  components.minute = 0;
  components.second = 0;
  return dateFromComponents(components, zone);
}

Date checkInsideWindow(Date now, const MoveSettings& settings, bool hasBaseline,
                       const TimeZone& zone) {
  const auto hours = std::chrono::hours(hasBaseline ? settings.remindPeriod : 0);
  const Date target = now + hours + kMargin;
  auto components = componentsFromDate(target, zone);
  Date date = std::chrono::floor<std::chrono::seconds>(target);
  if (hasBaseline) {
    date -= std::chrono::minutes(components.minute) + std::chrono::seconds(components.second);
    components.minute = 0;
    components.second = 0;
  }
  // Counting back from the target keeps to its side of an hour that the clocks show twice, where
  // the components alone mean the earlier one. Only a clock change within the hour sets the two
  // apart.
  return componentsFromDate(date, zone) == components ? date : dateFromComponents(components, zone);
}

}  // namespace

std::optional<NextStepCheck> nextStepCheck(Date now, const TimeZone& zone,
                                           const MoveSettings& settings, bool hasBaseline) {
  if (!isUsable(settings)) {
    return std::nullopt;
  }
  const auto today = componentsFromDate(now, zone);
  NextStepCheck check;
  if (const auto days = daysToNextWindow(today, settings)) {
    check.addedDays = *days;
    check.forgetsBaseline = true;
    check.fireDate = windowStart(today, *days, settings.startSteps, zone);
  } else {
    check.fireDate = checkInsideWindow(now, settings, hasBaseline, zone);
  }
  return check.fireDate > now ? std::optional(check) : std::nullopt;
}

}  // namespace wrixel2::daemon
