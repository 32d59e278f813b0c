#pragma once

#include <memory>
#include <vector>

#include "bench/Extent.h"
#include "bench/Report.h"
#include "bench/ServedBand.h"

namespace wrixel2::bench {

/// What the daemon costs while nothing happens: memory, and how often it is woken.
class IdleBench {
 public:
  /// Starts the daemon without a radio, and the least one.
  IdleBench(Session& session, const Programs& programs, const Extent& extent, Report& report);

  /// A daemon that something else was done with before.
  void alsoWatch(const char* what, Process& daemon, bool hasGoal);

  void measureMemory();
  /// All of them over the same time.
  void measureWakeUps();

 private:
  struct Watched {
    const char* what;
    Process* daemon;
    bool hasGoal;
    std::int64_t switches = 0;
  };

  Session& session_;
  const Extent& extent_;
  Report& report_;
  std::unique_ptr<Process> daemon_;
  std::unique_ptr<Process> floor_;
  std::vector<Watched> watched_;
};

}  // namespace wrixel2::bench
