#include "ctl/EventText.h"

#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "ctl/TimeText.h"

namespace wrixel2::ctl {

namespace {

using platform::Dictionary;

/// A text as it is, anything else as JSON has it.
std::string shown(const platform::Value& value) {
  return printable(value.text() != nullptr ? *value.text() : jsonText(value, JsonLayout::oneLine));
}

std::string trimmed(std::string text) {
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

std::string entries(const Dictionary& dictionary) {
  std::string text;
  for (const auto& [key, value] : dictionary) {
    text += fmt::format("{}{} {}", text.empty() ? "" : ", ", printable(key), trimmed(shown(value)));
  }
  return text;
}

/// None, the band's own words for a step count that there is not.
constexpr std::int64_t kNoSteps = 999999;

std::string sentenceOf(const platform::Notification& notification) {
  const auto number = [&](std::string_view key) {
    const auto* value = platform::find(notification.userInfo, key);
    return value != nullptr ? value->longValue() : 0;
  };
  if (notification.name == "org.corvale.wrixel2.measure") {
    const std::int64_t rate = number("heartRate");
    return rate > 0 ? fmt::format("heart rate {} bpm", rate) : "heart rate: no reading";
  }
  if (notification.name == "org.corvale.wrixel2.steps") {
    const std::int64_t steps = number("steps");
    return steps == kNoSteps ? "steps: no reading" : fmt::format("{} steps", steps);
  }
  if (notification.name == "org.corvale.wrixel2.stopwatch") {
    return "stopwatch stopped at " +
           printable(platform::textForKey(notification.userInfo, "timeDifference").value_or("?"));
  }
  const std::string behind = entries(notification.userInfo);
  return printable(notification.name) + (behind.empty() ? "" : ": " + behind);
}

}  // namespace

EventText EventText::ofStatus(const std::string& property, const platform::Value& value,
                              platform::Date now, const platform::TimeZone& zone) {
  const bool isTime = property == "NextMeasurement" || property == "NextStepCheck";
  const bool isEmpty = value.text() != nullptr && value.text()->empty();
  return {fmt::format("{} is now {}", printable(property),
                      isTime    ? plannedTime(value.longValue(), now, zone)
                      : isEmpty ? "empty"
                                : shown(value)),
          {{"event", "status"}, {"property", property}, {"value", value}}};
}

EventText EventText::ofPosting(const std::string& name) {
  return {"posted " + printable(name), {{"event", "posting"}, {"name", name}}};
}

EventText EventText::ofNotification(const platform::Notification& notification) {
  return {sentenceOf(notification),
          {{"event", "notification"},
           {"name", notification.name},
           {"userInfo", notification.userInfo}}};
}

EventText EventText::ofProgram(const std::string& program, bool runs) {
  return {fmt::format("the {} {}", program, runs ? "runs" : "has ended"),
          {{"event", "program"}, {"program", program}, {"running", runs}}};
}

}  // namespace wrixel2::ctl
