#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/protocol/MBBLE/SessionStep.h"
#include "tests/protocol/MBBLE/SessionView.h"

namespace wrixel2::mbble {

/// What a session with one band has to do, rule by rule, with nothing of how it does it: on a radio
/// that takes no time a connection with all of its setting up is one event.
class SessionModel {
 public:
  /// The band is in range, the radio is powered on, and that has just been reported.
  SessionModel();

  /// Whether the step means something now. The real one must not be given a step that does not.
  bool takes(const SessionStep& step) const;
  void take(const SessionStep& step);

  const SessionView& view() const { return view_; }

 private:
  using Time = std::chrono::microseconds;
  enum class Event : std::uint8_t {
    watchdog,
    retryStart,
    retryTick,
    scanWatchdog,
    advertisement,
    connectWatchdog,
    powerOnDelay,
    authenticationRetry,
    supervision,
    heartRate
  };
  struct Pending {
    Event event;
    Time due;
    Time interval{};  ///< of one that repeats
    int bands = 0;    ///< of a retry: bandsForgotten_ when its band was known
  };
  /// What was asked of a band that is out of range, and waits on the link.
  enum class Request : std::uint8_t {
    heartRate,
    heartRateContinuous,
    steps,
    time,
    battery,
    authentication
  };

  // Time.
  void schedule(Event event, Time delay, Time interval = Time::zero());
  void scheduleRetry(Event event, Time delay, Time interval, int bands);
  void cancel(Event event);
  bool isPending(Event event) const;
  void pass(Time time);
  void happen(const Pending& pending);
  /// What the turn has begun and the radio carries out at once.
  void settle();

  // The radio and the band.
  bool isPoweredOn() const { return power_ == kPoweredOn; }
  bool isOurs() const { return link_ != Link::none && link_ != Link::somebodyElses; }
  bool isAdvertising() const { return isInRange_ && link_ == Link::none; }
  void airChanged();
  void setPower(std::int64_t power);
  void setInRange(bool isInRange);
  void linkMade();
  void authenticate();
  void linkEnded(std::int64_t code);
  void ask(Request request);
  void carryOut(Request request);

  // The session's rules.
  void poweredOn();
  void poweredOff();
  void kick(int interval);
  void kickForAlert();
  void watchdogFired();
  void startBandConnection(bool isWatched);
  void scan(bool isWatched);
  void stopScan();
  void advertised();
  bool isAdmitted(const std::string& mac) const;
  void connect();
  void served();
  void serveRequests();
  void serve(const std::function<void()>& action);
  void alertBand();
  void heartRateOfBand(std::int64_t mode);
  void alert(std::uint64_t repeat, std::uint64_t icon);
  void retryTicked(int bands);
  void disconnected(std::int64_t code);
  void giveUp();
  void request(const SessionStep& step);

  static constexpr std::int64_t kPoweredOn = 5;
  enum class Link : std::uint8_t { none, somebodyElses, connected, setUp };

  SessionView view_;
  Time now_{};
  std::vector<Pending> pending_;  ///< in the order in which they were made
  bool needsScanWatchdog_ = false;
  bool needsConnectWatchdog_ = false;

  std::int64_t power_ = kPoweredOn;
  bool isInRange_ = true;
  Link link_ = Link::none;
  bool isConnecting_ = false;
  bool failsNextConnect_ = false;
  std::int64_t refusals_ = 0;
  std::optional<SessionStep> plannedDrop_;
  std::vector<Request> waiting_;
  std::optional<std::int64_t> endedWith_;  ///< not heard of by the session yet
  bool isRadioScanning_ = false;
  bool observesCapabilities_ = false;
  bool scanIsWatched_ = false;

  int authenticationFailures_ = 0;
  bool wasServed_ = false;
  bool isBatteryKnown_ = false;
  std::optional<std::string> lockFile_;
  std::uint64_t alertRepeat_ = 1;
  std::uint64_t alertIcon_ = 0;
  std::int64_t heartRateMode_ = 0;
  std::int64_t lastDisconnectError_ = 0;
  int retryCount_ = 0;
  int bandsForgotten_ = 0;
};

}  // namespace wrixel2::mbble
