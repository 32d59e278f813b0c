/// wrixel2_bench: what the daemon costs, beside the least that it could cost.

#include <chrono>
#include <fstream>
#include <string>

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <unistd.h>

#include "bench/AwakeProcessors.h"
#include "bench/CompanionBench.h"
#include "bench/IdleBench.h"
#include "bench/MessageBench.h"
#include "bench/SmallBenches.h"
#include "bench/StartUpBench.h"
#include "platform/linux/LocalTimeZone.h"
#include "platform/linux/StderrLog.h"

namespace {

using namespace wrixel2;
using namespace wrixel2::bench;

void progress(std::string_view what) { fmt::print(stderr, "-- {}\n", what); }

void measureEverything(const Extent& extent, Report& report) {
  const Programs programs;
  platform::linux::StderrLog log("wrixel2_bench", false);
  platform::linux::LocalTimeZone zone;
  platform::linux::LinuxRunLoop loop(log, zone);
  Session plain(loop, log);

  progress("start-up");
  measureStartUp(plain, programs, extent, report);

  ServedBand inRange(loop, log, zone, programs, ServedBand::Place::inRange);
  {
    MessageBench messages(inRange, programs, extent, report);
    progress("message to GATT write");
    messages.measureLatency();
    progress("messages a second, and the memory that they cost");
    messages.measureThroughput();
  }
  {
    CompanionBench companion(loop, log, programs, extent, report);
    progress("companion");
    companion.measureNotifications();
    companion.measureHeartRates();
  }
  progress("single operations");
  {
    const AwakeProcessors awake;
    measureSmallThings(extent, report);
  }

  progress("memory");
  IdleBench idle(plain, programs, extent, report);
  idle.measureMemory();
  progress(fmt::format("wake-ups, {} s", (extent.settling + extent.idle).count()));
  ServedBand outOfRange(loop, log, zone, programs, ServedBand::Place::outOfRange);
  idle.alsoWatch("connected, after the load", inRange.daemon(), true);
  idle.alsoWatch("band out of range", outOfRange.daemon(), false);
  idle.measureWakeUps();
}

}  // namespace

int main(int argc, char** argv) {
  bool isQuick = false;
  bool isBrief = false;
  bool isLong = false;
  std::string results;
  CLI::App app("Measures wrixel2d and wrixel2-companion beside bare programs that do the least.",
               "wrixel2_bench");
  app.add_flag("--quick", isQuick, "a look at whether everything can be measured; no figures");
  app.add_flag("--brief", isBrief, "one second of idleness instead of a minute")
      ->excludes("--quick");
  app.add_flag("--long", isLong, "ten minutes of idleness instead of one")
      ->excludes("--quick")
      ->excludes("--brief");
  app.add_option("--json", results, "write the figures to this file, too");
  CLI11_PARSE(app, argc, argv);

  const Extent extent = isQuick   ? quickExtent()
                        : isBrief ? briefExtent()
                        : isLong  ? longExtent()
                                  : Extent();
  Report report;
  measureEverything(extent, report);
  fmt::print("{}", report.table());
  if (!results.empty()) {
    std::ofstream file(results);
    file << report.json(extent.name);
    if (!file.flush()) {
      giveUp(fmt::format("{} cannot be written", results));
    }
  }
  return 0;
}
