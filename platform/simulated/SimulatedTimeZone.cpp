#include "platform/simulated/SimulatedTimeZone.h"

#include <algorithm>
#include <utility>

namespace wrixel2::platform::simulated {

namespace {

constexpr int kHour = 3600;

Date lastSundayAtOneUTC(int year, std::chrono::month month) {
  return std::chrono::sys_days(std::chrono::year(year) / month /
                               std::chrono::Sunday[std::chrono::last]) +
         std::chrono::hours(1);
}

}  // namespace

int SimulatedTimeZone::secondsFromGMT(Date date) const {
  const auto next = std::upper_bound(
      transitions_.begin(), transitions_.end(), date,
      [](Date moment, const Transition& transition) { return moment < transition.date; });
  return next == transitions_.begin() ? initialOffset_ : std::prev(next)->secondsFromGMT;
}

void SimulatedTimeZone::setSecondsFromGMT(int seconds) { setTransitions(seconds, {}); }

void SimulatedTimeZone::setTransitions(int secondsFromGMT, std::vector<Transition> transitions) {
  initialOffset_ = secondsFromGMT;
  transitions_ = std::move(transitions);
  ++generation_;
}

void SimulatedTimeZone::setCentralEurope() {
  std::vector<Transition> transitions;
  for (int year = 2000; year < 2100; ++year) {
    transitions.push_back({lastSundayAtOneUTC(year, std::chrono::March), 2 * kHour});
    transitions.push_back({lastSundayAtOneUTC(year, std::chrono::October), kHour});
  }
  setTransitions(kHour, std::move(transitions));
}

}  // namespace wrixel2::platform::simulated
