#include "bench/StartUpBench.h"

#include <string>
#include <utility>
#include <vector>

#include "bench/AwakeProcessors.h"

namespace wrixel2::bench {
namespace {

double startUpTime(Session& session, std::vector<std::string> arguments, const std::string& name) {
  const auto begin = std::chrono::steady_clock::now();
  auto process = session.start(std::move(arguments), name);
  const auto time = std::chrono::steady_clock::now() - begin;
  process.reset();
  session.waitUntil("the name's end", [&] {
    const auto isOwned = session.bus().nameHasOwner(name);
    return isOwned && !*isOwned;
  });
  return std::chrono::duration<double, std::milli>(time).count();
}

}  // namespace

void measureStartUp(Session& session, const Programs& programs, const Extent& extent,
                    Report& report) {
  const AwakeProcessors awake;
  const std::string name(kDaemonCenter);
  std::vector<double> ours;
  std::vector<double> floors;
  for (std::size_t start = 0; start < extent.starts; ++start) {
    ours.push_back(startUpTime(session, {programs.daemon, "--log", "stderr"}, name));
    floors.push_back(startUpTime(session, {programs.idleFloor, name}, name));
  }
  report.add({"start-up", "to the name on the bus, p50", "ms", quantile(ours, 0.5),
              quantile(floors, 0.5), Goal{Goal::Kind::atMostRatio, 1.5}});
  report.add({"start-up", "to the name on the bus, p90", "ms", quantile(ours, 0.9),
              quantile(floors, 0.9), std::nullopt});
}

}  // namespace wrixel2::bench
