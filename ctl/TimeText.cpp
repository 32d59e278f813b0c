#include "ctl/TimeText.h"

#include <array>
#include <charconv>
#include <cstdlib>

#include <fmt/format.h>

namespace wrixel2::ctl {

namespace {

using platform::Date;
using platform::DateComponents;
using platform::TimeZone;

std::string dayOf(const DateComponents& c) {
  return fmt::format("{:04}-{:02}-{:02}", c.year, c.month, c.day);
}

Date startOfDay(Date now, int daysAgo, const TimeZone& zone) {
  DateComponents day = platform::componentsFromDate(now, zone);
  day.day -= daysAgo;
  day.hour = day.minute = day.second = 0;
  return platform::dateFromComponents(day, zone);
}

/// Exactly so many digits, which are taken from the text.
std::optional<int> takeNumber(std::string_view& text, std::size_t digits) {
  int number = 0;
  if (text.size() < digits) {
    return std::nullopt;
  }
  const auto [end, error] = std::from_chars(text.data(), text.data() + digits, number);
  if (error != std::errc() || end != text.data() + digits || text.front() == '-') {
    return std::nullopt;
  }
  text.remove_prefix(digits);
  return number;
}

bool takeOneOf(std::string_view& text, std::string_view characters) {
  if (text.empty() || characters.find(text.front()) == std::string_view::npos) {
    return false;
  }
  text.remove_prefix(1);
  return true;
}

std::optional<Date> agoFromText(std::string_view text, Date now) {
  constexpr std::array<std::pair<char, int>, 4> kUnits = {
      {{'m', 60}, {'h', 3600}, {'d', 86400}, {'w', 7 * 86400}}};
  constexpr long kMost = 1'000'000;
  for (const auto& [letter, seconds] : kUnits) {
    long count = 0;
    if (!text.ends_with(letter)) {
      continue;
    }
    const char* last = text.data() + text.size() - 1;
    const auto [end, error] = std::from_chars(text.data(), last, count);
    if (error == std::errc() && end == last && text.size() > 1 && count >= 0 && count <= kMost) {
      return now - std::chrono::seconds(count * seconds);
    }
  }
  return std::nullopt;
}

std::optional<Date> dateFromText(std::string_view text, const TimeZone& zone) {
  const auto year = takeNumber(text, 4);
  if (!year || !takeOneOf(text, "-")) {
    return std::nullopt;
  }
  const auto month = takeNumber(text, 2);
  if (!month || !takeOneOf(text, "-")) {
    return std::nullopt;
  }
  const auto day = takeNumber(text, 2);
  DateComponents components{*year, *month, day.value_or(0), 0, 0, 0, 0};
  if (takeOneOf(text, " T")) {
    const auto hour = takeNumber(text, 2);
    const bool hasColon = takeOneOf(text, ":");
    const auto minute = takeNumber(text, 2);
    if (!hour || !hasColon || !minute) {
      return std::nullopt;
    }
    components.hour = *hour;
    components.minute = *minute;
    if (takeOneOf(text, ":")) {
      components.second = takeNumber(text, 2).value_or(-1);
    }
  }
  const Date date = platform::dateFromComponents(components, zone);
  // What rolls over (the 31st of June, 25 o'clock) is no date; an hour that a clock change skips
  // is.
  const DateComponents made =
      platform::componentsFromDate(date, platform::FixedTimeZone(zone.secondsFromGMT(date)));
  const bool isReal = made.year == components.year && made.month == components.month &&
                      made.day == components.day && components.hour < 24 &&
                      components.minute < 60 && components.second >= 0 && components.second < 60;
  return text.empty() && isReal ? std::optional(date) : std::nullopt;
}

}  // namespace

std::string timeOfDay(Date date, const TimeZone& zone) {
  const auto c = platform::componentsFromDate(date, zone);
  return fmt::format("{:02}:{:02}:{:02}", c.hour, c.minute, c.second);
}

std::string plannedTime(std::int64_t unixSeconds, platform::Date now,
                        const platform::TimeZone& zone) {
  return unixSeconds == 0 ? "not planned"
                          : shortTime(platform::Date(std::chrono::seconds(unixSeconds)), now, zone);
}

std::string localTime(Date date, const TimeZone& zone) {
  return dayOf(platform::componentsFromDate(date, zone)) + " " + timeOfDay(date, zone);
}

std::string shortTime(Date date, Date now, const TimeZone& zone) {
  const auto c = platform::componentsFromDate(date, zone);
  const auto today = platform::componentsFromDate(now, zone);
  const std::string time = fmt::format("{:02}:{:02}", c.hour, c.minute);
  return dayOf(c) == dayOf(today) ? time : dayOf(c) + " " + time;
}

std::string internetTime(Date date, const TimeZone& zone) {
  const auto c = platform::componentsFromDate(date, zone);
  const int offset = zone.secondsFromGMT(date);
  const int minutes = std::abs(offset) / 60;
  return fmt::format("{}T{:02}:{:02}:{:02}{}{:02}:{:02}", dayOf(c), c.hour, c.minute, c.second,
                     offset < 0 ? '-' : '+', minutes / 60, minutes % 60);
}

platform::Result<Date> momentFromText(std::string_view text, Date now, const TimeZone& zone) {
  if (text == "now") {
    return now;
  }
  if (text == "today" || text == "yesterday") {
    return startOfDay(now, text == "today" ? 0 : 1, zone);
  }
  if (const auto ago = agoFromText(text, now)) {
    return *ago;
  }
  if (const auto date = dateFromText(text, zone)) {
    return *date;
  }
  return platform::Error{
      0, fmt::format("\"{}\" is no time; write 90m, 2h, 3d or 2w (ago), today, yesterday, "
                     "2026-11-24 or \"2026-11-24 14:30\"",
                     text)};
}

}  // namespace wrixel2::ctl
