#include "bench/MessageBench.h"

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "bench/AwakeProcessors.h"

namespace wrixel2::bench {
namespace {

using platform::linux::BusAddress;
using platform::linux::BusMessage;
using std::chrono::steady_clock;

constexpr const char* kFloorName = "org.corvale.wrixel2.Floor";

double microseconds(std::chrono::nanoseconds time) {
  return std::chrono::duration<double, std::micro>(time).count();
}

platform::Dictionary bulletin(std::size_t number) {
  return {{"sectionID", fmt::format("org.example.App{}", number % 20)},
          {"title", "Anna Example"},
          {"message", "See you at six, at the usual place"},
          {"sender", "anna@example.org"}};
}

}  // namespace

MessageBench::MessageBench(ServedBand& served, const Programs& programs, const Extent& extent,
                           Report& report)
    : served_(served),
      extent_(extent),
      report_(report),
      floorCenter_{kFloorName, "/floor", kFloorName} {
  // The daemon's first write tells the path that the floor writes to.
  timeToWrite(centerAddress(kDaemonCenter));
  floor_ =
      served_.session().start({programs.latencyFloor, kFloorName, served_.band().writtenPath()},
                              kFloorName, served_.band().address());
}

double MessageBench::timeToWrite(const BusAddress& center) {
  served_.band().expectWrite();
  const auto start = steady_clock::now();
  served_.session().tell(center, "phoneCall", {{"newCall", true}, {"text", "Anna Example"}});
  served_.session().waitUntil("a write", [this] { return served_.band().written().has_value(); });
  return microseconds(*served_.band().written() - start);
}

void MessageBench::measureLatency() {
  const AwakeProcessors awake;
  const BusAddress daemon = centerAddress(kDaemonCenter);
  std::vector<double> ours;
  std::vector<double> floors;
  // The first ones find caches and branch predictors cold.
  const std::size_t warmUp = extent_.latencyPairs / 10;
  for (std::size_t pair = 0; pair < warmUp + extent_.latencyPairs; ++pair) {
    const double our = timeToWrite(daemon);
    const double floor = timeToWrite(floorCenter_);
    if (pair >= warmUp) {
      ours.push_back(our);
      floors.push_back(floor);
    }
  }
  const auto add = [&](const char* what, double part, std::optional<Goal> goal) {
    report_.add(
        {"message to GATT write", what, "us", quantile(ours, part), quantile(floors, part), goal});
  };
  add("p50", 0.5, Goal{Goal::Kind::atMostRatio, 1.3});
  add("p90", 0.9, std::nullopt);
  add("p99", 0.99, Goal{Goal::Kind::atMostRatio, 1.5});
}

void MessageBench::handleBatch(Side& side) {
  auto& session = served_.session();
  side.process->signal(SIGSTOP);
  for (std::size_t number = 0; number < extent_.batch; ++number) {
    session.tell(side.center, "bulletinRequest", bulletin(number));
  }
  const auto ping = session.bus().newMethodCall(
      {side.center.destination, "/", "org.freedesktop.DBus.Peer"}, "Ping");
  bool isAnswered = false;
  auto answered =
      session.bus().callAsync(*ping, [&isAnswered](const BusMessage&) { isAnswered = true; });
  // The bus daemon has them all when it answers a question that was put behind them.
  if (!session.bus().nameHasOwner(side.center.destination)) {
    giveUp("the message bus does not answer");
  }
  const auto processorTime = side.process->processorTime();
  const auto start = steady_clock::now();
  side.process->signal(SIGCONT);
  session.waitUntil("the messages' end", [&isAnswered] { return isAnswered; });
  side.time += steady_clock::now() - start;
  side.processorTime += side.process->processorTime() - processorTime;
  side.handled += extent_.batch;
}

void MessageBench::measureThroughput() {
  Side daemon{centerAddress(kDaemonCenter), &served_.daemon()};
  Side floor{floorCenter_, floor_.get()};
  const MemoryFigures before = served_.daemon().memory();
  MemoryFigures half;
  std::int64_t largest = before.resident;
  {
    const AwakeProcessors awake;
    for (std::size_t batch = 0; batch < extent_.batchesOfLoad; ++batch) {
      handleBatch(daemon);
      if (batch < extent_.batchesOfLoad / 2) {
        handleBatch(floor);
      } else if (batch == extent_.batchesOfLoad / 2) {
        half = served_.daemon().memory();
      }
      if (batch % 10 == 0) {
        largest = std::max(largest, served_.daemon().memory().resident);
      }
    }
  }
  const MemoryFigures after = served_.daemon().memory();
  const auto rate = [](const Side& side) {
    return static_cast<double>(side.handled) / std::chrono::duration<double>(side.time).count();
  };
  const auto cost = [](const Side& side) {
    return microseconds(side.processorTime) / static_cast<double>(side.handled);
  };
  const std::string group = fmt::format("{} messages", daemon.handled);
  report_.add(
      {group, "handled", "1/s", rate(daemon), rate(floor), Goal{Goal::Kind::atLeastRatio, 0.8}});
  report_.add({group, "processor time of one", "us", cost(daemon), cost(floor), std::nullopt});
  const auto add = [&](const char* what, std::int64_t kilobytes, std::optional<Goal> goal = {}) {
    report_.add({group, what, "kB", static_cast<double>(kilobytes), std::nullopt, goal});
  };
  add("resident before", before.resident);
  add("largest resident meanwhile", largest);
  add("resident after half of them", half.resident);
  add("resident after all", after.resident);
  add("written pages before", before.written);
  add("written pages after half of them", half.written);
  add("written pages after all", after.written);
  add("growth of the written pages", std::max<std::int64_t>(after.written - before.written, 0),
      Goal{Goal::Kind::atMost, 50});
}

}  // namespace wrixel2::bench
