#include "ctl/StepsCommand.h"

#include <charconv>
#include <optional>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/TextRows.h"
#include "ctl/Waiting.h"

namespace wrixel2::ctl {

namespace {

constexpr auto kReportTime = std::chrono::seconds(10);

/// The number that the first band's entry of a report's text begins with: "2500m " is 2500.
std::optional<std::int64_t> numberIn(const platform::Dictionary& report, std::string_view key) {
  const std::string text = platform::textForKey(report, key).value_or("");
  std::int64_t number = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), number);
  return result.ec == std::errc() ? std::optional(number) : std::nullopt;
}

struct Counter {
  const char* key;
  const char* member;
  const char* title;
  const char* unit;
};
constexpr Counter kCounters[] = {
    {"currentSteps", "steps", "Steps", ""},
    {"currentDistance", "distance", "Distance", " m"},
    {"currentCalories", "calories", "Calories", " kcal"},
    {"batteryStatus", "battery", "Battery", " %"},
};

}  // namespace

void StepsCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand(
      "steps", "Tell the steps, distance and calories that the band counted");
  command->callback([choose] { choose(run); });
}

ExitStatus StepsCommand::run(const Context& context) {
  const auto session = context.openSessionWithDaemon();
  if (!session) {
    return context.fail(session.error());
  }
  std::optional<platform::Dictionary> report;
  SessionEvents events;
  events.distributed = [&report](Peer by, const platform::Notification& notification) {
    if (by == Peer::daemon && notification.name == "org.corvale.wrixel2.capabilities") {
      report = notification.userInfo;
    }
  };
  const auto waiting = Waiting::start(context, **session, std::move(events));
  if (!waiting) {
    return context.fail(waiting.error());
  }
  if (const auto error = (*session)->post(
          platform::Notification{"org.corvale.wrixel2.capReq", std::nullopt, {}})) {
    return context.fail(*error);
  }
  if (const auto error =
          (*waiting)->until([&report] { return report.has_value(); }, kReportTime, "Asking",
                            "the daemon has no band to ask; is \"enabled\" set, and does the "
                            "companion run?")) {
    return context.fail(*error);
  }
  platform::Dictionary members;
  std::vector<std::vector<std::string>> rows;
  for (const Counter& counter : kCounters) {
    const auto number = numberIn(*report, counter.key);
    if (number) {
      members.insert_or_assign(counter.member, *number);
    }
    rows.push_back(
        {counter.title, number ? fmt::format("{}{}", *number, counter.unit) : "unknown"});
  }
  context.console.print(context.json ? jsonText(members, JsonLayout::indented) + "\n"
                                     : alignedRows(rows));
  return members.contains("steps")
             ? ExitStatus::done
             : context.fail(ExitStatus::timedOut,
                            "the band has counted no steps yet, or has not told them");
}

}  // namespace wrixel2::ctl
