#include "ctl/MeasureCommand.h"

#include <optional>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include "ctl/Json.h"
#include "ctl/Waiting.h"

namespace wrixel2::ctl {

namespace {

/// The link is made first, by a scan if need be.
constexpr auto kFirstReading = std::chrono::seconds(90);
/// After a failed reading the band is asked once more, unasked.
constexpr auto kSecondReading = std::chrono::seconds(45);

ExitStatus report(const Context& context, std::int64_t heartRate) {
  context.console.print(
      context.json
          ? jsonText(platform::Dictionary{{"heartRate", heartRate}}, JsonLayout::oneLine) + "\n"
          : fmt::format("{} bpm\n", heartRate));
  return ExitStatus::done;
}

}  // namespace

void MeasureCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("measure", "Measure the heart rate now");
  command->callback([choose] { choose(run); });
}

ExitStatus MeasureCommand::run(const Context& context) {
  const auto session = context.openSessionForBand();
  if (!session) {
    return context.fail(session.error());
  }
  std::optional<std::int64_t> reading;
  SessionEvents events;
  events.distributed = [&reading](Peer by, const platform::Notification& notification) {
    const auto* value = platform::find(notification.userInfo, "heartRate");
    if (by == Peer::daemon && notification.name == "org.corvale.wrixel2.measure" &&
        value != nullptr) {
      reading = value->longValue();
    }
  };
  const auto waiting = Waiting::start(context, **session, std::move(events));
  if (!waiting) {
    return context.fail(waiting.error());
  }
  if (const auto error = (*session)->post("org.corvale.wrixel2prefs.preferencechanged/measure")) {
    return context.fail(*error);
  }
  if (const auto error =
          (*waiting)->until([&reading] { return reading.has_value(); }, kFirstReading, "Measuring",
                            "the band did not answer; is it near and worn?")) {
    return context.fail(*error);
  }
  if (*reading > 0) {
    return report(context, *reading);
  }
  const auto error = (*waiting)->until(
      [&reading] { return *reading > 0; }, kSecondReading, "No reading; measuring once more",
      "the band could not read the heart rate; wear it tighter, and keep still");
  return error ? context.fail(*error) : report(context, *reading);
}

}  // namespace wrixel2::ctl
