#pragma once

#include <list>
#include <memory>
#include <string>
#include <vector>

#include "companion/CallControl.h"
#include "companion/CallSource.h"
#include "platform/Clock.h"
#include "platform/MessageCenter.h"
#include "platform/RunLoop.h"

namespace wrixel2::companion {

class BandWork;

/// Tells the daemon of the calls that ring, whoever knows of them: of each real call once, and of
/// the end of ringing when the last one has been answered, rejected or missed.
///
/// The preferred source knows the most, and counts alone while its program runs: the others' calls
/// are then only matched with its own. Where any of the sources has seen a call end, it has ended.
class CallMonitor final : public CallControl {
 public:
  /// Calls that two sources report within this time are one.
  static constexpr platform::TimeInterval kSameCall = std::chrono::seconds(2);
  /// How long a call without number and name waits for them: a modem may announce the one after the
  /// other.
  static constexpr platform::TimeInterval kCallerWait = std::chrono::milliseconds(500);

  /// All outlive it; the center is the daemon's.
  CallMonitor(platform::RunLoop& loop, const platform::Clock& clock,
              platform::MessageCenter& daemon, BandWork& work)
      : loop_(loop), clock_(clock), daemon_(daemon), work_(work) {}

  /// The source lives until it is removed, or as long as the monitor.
  void addPreferredSource(CallSource& source);
  void addSource(CallSource& source);
  /// Its calls are over.
  void removeSource(CallSource& source);

  /// The daemon takes messages, and knows of no call. Before the first time it is told nothing.
  void daemonIsReady();

  void silence() override;
  void hangUp() override;

 private:
  /// What one source says of a call.
  struct Report {
    CallSource* source = nullptr;
    std::string id;
    bool isRinging = true;
  };
  /// A real call.
  struct Call {
    platform::MonotonicTime began;
    std::vector<Report> reports;
    bool isOver = false;
    bool isTold = false;
    bool isCallerAwaited = true;
    std::unique_ptr<platform::Timer> callerTimer;
  };

  void update();
  void noteEnds();
  void noteNewCalls(CallSource& source);
  Call* sameCallOfOthers(const CallSource& source, const RingingCall& ringing);
  void tellDaemon();
  void tell(Call& call);

  bool isListenedTo(const Call& call) const;
  bool rings(const Call& call) const { return !call.isOver && isListenedTo(call); }
  /// What the source that knows the most says; of a call that rings.
  const Report& bestReport(const Call& call) const;
  std::string callerOf(const Call& call) const;

  platform::RunLoop& loop_;
  const platform::Clock& clock_;
  platform::MessageCenter& daemon_;
  BandWork& work_;
  CallSource* preferred_ = nullptr;
  std::vector<CallSource*> sources_;
  std::list<Call> calls_;
  bool isDaemonReady_ = false;
  bool isBandRinging_ = false;
};

}  // namespace wrixel2::companion
