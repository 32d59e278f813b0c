#include "daemon/ClockKeeper.h"

#include <chrono>
#include <utility>

namespace wrixel2::daemon {

namespace {

constexpr std::string_view kTimerIdentifier = "wrixel2.zoneTransition";
/// Zones change at most a few times a year, and never for so short a time.
constexpr auto kStride = std::chrono::hours(24);
constexpr auto kHorizon = std::chrono::hours(24 * 366);

}  // namespace

ClockKeeper::ClockKeeper(const platform::Platform& platform, std::function<void()> timeLeapt)
    : platform_(platform),
      timeLeapt_(std::move(timeLeapt)),
      observation_(platform.runLoop.observeLocalTime([this] { localTimeChanged(); })) {
  awaitTransition();
}

std::optional<platform::Date> ClockKeeper::nextZoneTransition(const platform::TimeZone& zone,
                                                              platform::Date from) {
  const int offset = zone.secondsFromGMT(from);
  platform::Date before = from;
  platform::Date after = from + kStride;
  while (zone.secondsFromGMT(after) == offset) {
    if (after - from > kHorizon) {
      return std::nullopt;
    }
    before = std::exchange(after, after + kStride);
  }
  while (after - before > std::chrono::seconds(1)) {
    const platform::Date middle = before + (after - before) / 2;
    (zone.secondsFromGMT(middle) == offset ? before : after) = middle;
  }
  return std::chrono::ceil<std::chrono::seconds>(before);
}

void ClockKeeper::localTimeChanged() {
  awaitTransition();
  timeLeapt_();
}

void ClockKeeper::awaitTransition() {
  const platform::Date now = platform_.clock.now();
  const auto transition = nextZoneTransition(platform_.localTimeZone, now);
  transitionTimer_ = transition
                         ? platform_.runLoop.persistentTimer(*transition - now, kTimerIdentifier,
                                                             [this] { localTimeChanged(); })
                         : nullptr;
}

}  // namespace wrixel2::daemon
