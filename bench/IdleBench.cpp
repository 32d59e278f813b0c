#include "bench/IdleBench.h"

#include <string>

#include <fmt/format.h>

namespace wrixel2::bench {
namespace {

constexpr const char* kFloorName = "org.corvale.wrixel2.Floor";
constexpr Goal kAtMostThirdMore{Goal::Kind::atMostRatio, 1.3};
/// What the whole daemon is to stay below, in kB.
constexpr Goal kMostResident{Goal::Kind::atMost, 4100};

}  // namespace

IdleBench::IdleBench(Session& session, const Programs& programs, const Extent& extent,
                     Report& report)
    : session_(session),
      extent_(extent),
      report_(report),
      daemon_(session.start({programs.daemon, "--log", "stderr"}, std::string(kDaemonCenter))),
      floor_(session.start({programs.idleFloor, kFloorName}, kFloorName)) {
  alsoWatch("without a radio", *daemon_, true);
}

void IdleBench::alsoWatch(const char* what, Process& daemon, bool hasGoal) {
  watched_.push_back({what, &daemon, hasGoal});
}

void IdleBench::measureMemory() {
  session_.waitFor(std::chrono::seconds(1));
  const MemoryFigures ours = daemon_->memory();
  const MemoryFigures floors = floor_->memory();
  const auto add = [this](const char* what, const char* unit, std::int64_t our, std::int64_t floor,
                          std::optional<Goal> goal = std::nullopt) {
    report_.add({"idle", what, unit, static_cast<double>(our), static_cast<double>(floor), goal});
  };
  add("resident", "kB", ours.resident, floors.resident, kAtMostThirdMore);
  add("resident altogether", "kB", ours.resident, floors.resident, kMostResident);
  add("proportional", "kB", ours.proportional, floors.proportional);
  add("private: written pages", "kB", ours.written, floors.written, kAtMostThirdMore);
  add("unshared: these, and files only it has mapped", "kB", ours.unshared, floors.unshared);
  add("threads", "", daemon_->threads(), floor_->threads());
  add("libraries", "", daemon_->libraries(), floor_->libraries());
}

void IdleBench::measureWakeUps() {
  session_.waitFor(extent_.settling);
  const std::int64_t floorSwitches = floor_->voluntarySwitches();
  for (Watched& watched : watched_) {
    watched.switches = watched.daemon->voluntarySwitches();
  }
  session_.waitFor(extent_.idle);
  const auto floor = static_cast<double>(floor_->voluntarySwitches() - floorSwitches);
  for (const Watched& watched : watched_) {
    if (!watched.daemon->isRunning()) {
      giveUp(fmt::format("the daemon {} has ended", watched.what));
    }
    report_.add({fmt::format("wake-ups in {} s", extent_.idle.count()), watched.what, "",
                 static_cast<double>(watched.daemon->voluntarySwitches() - watched.switches), floor,
                 watched.hasGoal ? std::optional(Goal{Goal::Kind::atMost, 0}) : std::nullopt});
  }
}

}  // namespace wrixel2::bench
