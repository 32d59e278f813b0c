#include "ctl/HeartRateCommand.h"

#include <utility>

#include <CLI/CLI.hpp>

#include "ctl/HeartRatePlot.h"
#include "ctl/HeartRateText.h"
#include "ctl/TimeText.h"
#include "platform/linux/SqliteHealthReader.h"

namespace wrixel2::ctl {

namespace {
constexpr auto kShownAtMost = std::chrono::hours(24);
}

void HeartRateCommand::declare(CLI::App& program, const Choose& choose) {
  auto* command = program.add_subcommand("heart-rate", "Show or export the stored heart rates");
  command
      ->add_option("--since", since_,
                   "from when on: 90m, 2h, 3d, 2w (ago), today, yesterday, 2026-11-24, "
                   "\"2026-11-24 14:30\"; without it 24 hours, or all for an export")
      ->check([](const std::string& when) { return when.empty() ? "a moment is missing" : ""; })
      ->type_name("WHEN");
  command->add_option("--until", until_, "till when, in the same words")
      ->type_name("WHEN")
      ->capture_default_str();
  auto* csv = command->add_flag("--csv", asCsv_, "comma-separated values: time, Unix time, bpm");
  auto* dataPoints =
      command->add_flag("--omh", asDataPoints_, "Open mHealth heart-rate 2.0 data points, as JSON");
  auto* plot = command->add_flag("--plot", asPlot_, "draw them");
  csv->excludes(dataPoints, plot);
  dataPoints->excludes(plot);
  command->callback(
      [this, choose] { choose([this](const Context& context) { return run(context); }); });
}

ExitStatus HeartRateCommand::run(const Context& context) const {
  if (context.json && asCsv_) {
    return context.fail(ExitStatus::badUsage, "--csv excludes --json");
  }
  const auto now = context.clock.now();
  const bool isExport = context.json || asCsv_ || asDataPoints_;
  // "now" has its own second's samples as well.
  auto until = momentFromText(until_, now + std::chrono::seconds(1), context.timeZone);
  auto since = since_.empty() ? platform::Result<platform::Date>(isExport ? platform::Date{}
                                                                          : now - kShownAtMost)
                              : momentFromText(since_, now, context.timeZone);
  for (const auto* moment : {&since, &until}) {
    if (!*moment) {
      return context.fail(ExitStatus::badUsage, moment->error().localizedDescription);
    }
  }
  if (*since >= *until) {
    return context.fail(ExitStatus::badUsage, "--since has to be before --until");
  }
  const auto samples = platform::linux::SqliteHealthReader(context.paths.healthDatabase)
                           .samples(platform::kHeartRateType, *since, *until);
  if (!samples) {
    return context.fail(ExitStatus::failed, samples.error().localizedDescription);
  }
  if (asCsv_) {
    context.console.print(heartRateCsv(*samples, context.timeZone));
  } else if (asDataPoints_) {
    context.console.print(heartRateDataPoints(*samples, context.timeZone));
  } else if (context.json) {
    context.console.print(heartRateJson(*samples, context.timeZone));
  } else if (asPlot_) {
    context.console.print(heartRatePlot(
        *samples, {*since, *until, context.console.columns(), context.console.isUtf8()},
        context.timeZone));
  } else {
    context.console.print(heartRateLines(*samples, context.timeZone));
  }
  return ExitStatus::done;
}

}  // namespace wrixel2::ctl
