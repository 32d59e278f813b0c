#include "tests/protocol/MBBLE/SessionModel.h"

#include <algorithm>
#include <utility>

namespace wrixel2::mbble {
namespace {

using Kind = SessionStep::Kind;
using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr std::string_view kAddress = "c8:0f:10:aa:bb:0c";
constexpr std::string_view kNoAddress = "00:00:00:00:00:00";
constexpr std::string_view kOtherAddress = "c8:0f:10:00:00:09";

constexpr int kOff = 0;
constexpr int kIdle = 1;
constexpr int kConnecting = 2;
constexpr int kConnected = 3;
constexpr int kScanning = 4;
constexpr int kScanResult = 5;

constexpr std::int64_t kResetting = 1;
constexpr std::int64_t kPoweredOff = 4;

/// The step of the setting up of a link by which the band has taken our key.
constexpr std::int64_t kLastAuthenticationStep = 5;

}  // namespace

SessionModel::SessionModel() { poweredOn(); }

bool SessionModel::takes(const SessionStep& step) const {
  switch (step.kind) {
    case Kind::inRange:
      return (step.first != 0) != isInRange_ && link_ != Link::somebodyElses;
    case Kind::drop:
      return link_ != Link::none;
    case Kind::refuse:
      return !plannedDrop_;
    case Kind::dropDuringSetup:
      return !plannedDrop_ && refusals_ == 0 && link_ == Link::none;
    case Kind::power:
      return step.first != power_;
    case Kind::somebodyElse:
      return link_ == Link::none && isInRange_ && isPoweredOn();
    default:
      return true;
  }
}

void SessionModel::take(const SessionStep& step) {
  // So that what begins with one step never falls due together with what began with another.
  constexpr std::chrono::microseconds kStep{7};
  pass(kStep);
  if (step.kind == Kind::wait) {
    pass(milliseconds(step.first));
  } else {
    request(step);
    settle();
  }
  view_.isConnected = isOurs();
  view_.isInitialized = link_ == Link::setUp;
  view_.link = link_ == Link::none ? 0 : link_ == Link::setUp ? 2 : 1;
  view_.watchdog.reset();
  for (const auto& pending : pending_) {
    if (pending.event == Event::watchdog) {
      view_.watchdog = (pending.due - now_).count();
    }
  }
}

// --- Time ---

void SessionModel::schedule(Event event, Time delay, Time interval) {
  pending_.push_back({event, now_ + delay, interval});
}

void SessionModel::scheduleRetry(Event event, Time delay, Time interval, int bands) {
  pending_.push_back({event, now_ + delay, interval, bands});
}

void SessionModel::cancel(Event event) {
  std::erase_if(pending_, [event](const Pending& pending) { return pending.event == event; });
}

bool SessionModel::isPending(Event event) const {
  return std::ranges::any_of(pending_,
                             [event](const Pending& pending) { return pending.event == event; });
}

void SessionModel::pass(Time time) {
  const Time end = now_ + time;
  while (true) {
    const auto next = std::ranges::min_element(pending_, {}, &Pending::due);
    if (next == pending_.end() || next->due > end) {
      break;
    }
    now_ = next->due;
    const Pending due = *next;
    if (due.interval == Time::zero()) {
      pending_.erase(next);
    } else {
      next->due += due.interval;
    }
    happen(due);
    settle();
  }
  now_ = end;
}

void SessionModel::happen(const Pending& pending) {
  switch (pending.event) {
    case Event::watchdog:
      watchdogFired();
      break;
    case Event::retryStart:
      retryCount_ = 0;
      cancel(Event::retryTick);
      scheduleRetry(Event::retryTick, seconds(2), seconds(2), pending.bands);
      break;
    case Event::retryTick:
      retryTicked(pending.bands);
      break;
    case Event::scanWatchdog:
      if (view_.isScanning) {
        stopScan();
      }
      break;
    case Event::advertisement:
      advertised();
      break;
    case Event::connectWatchdog:
      if (!isOurs() && std::exchange(isConnecting_, false)) {
        endedWith_ = 0;
      }
      break;
    case Event::powerOnDelay:
      startBandConnection(true);
      break;
    case Event::authenticationRetry:
      if (link_ == Link::connected) {
        ask(Request::authentication);
      }
      break;
    case Event::supervision:
      linkEnded(6);
      break;
    case Event::heartRate:
      if (isInRange_) {
        view_.isHeartRateActive = false;
        view_.isHeartRateRequested = false;
      }
      break;
  }
}

void SessionModel::settle() {
  while (true) {
    if (std::exchange(needsScanWatchdog_, false)) {
      schedule(Event::scanWatchdog, seconds(60));
    }
    if (std::exchange(needsConnectWatchdog_, false)) {
      cancel(Event::connectWatchdog);
      schedule(Event::connectWatchdog, seconds(45));
    }
    if (const auto code = std::exchange(endedWith_, std::nullopt)) {
      disconnected(*code);
      continue;
    }
    const bool isAnswered = isConnecting_ && (isInRange_ || !isPoweredOn());
    if (!isAnswered) {
      return;
    }
    isConnecting_ = false;
    cancel(Event::connectWatchdog);
    if (!isPoweredOn() || std::exchange(failsNextConnect_, false)) {
      view_.state = kIdle;
    } else {
      linkMade();
    }
  }
}

// --- The radio and the band ---

void SessionModel::airChanged() {
  const bool isHeard = isRadioScanning_ && isAdvertising();
  if (!isHeard) {
    cancel(Event::advertisement);
  } else if (!isPending(Event::advertisement)) {
    schedule(Event::advertisement, milliseconds(100), milliseconds(100));
  }
}

void SessionModel::setPower(std::int64_t power) {
  const bool isLeaving = isPoweredOn();
  power_ = power;
  if (isLeaving) {
    isRadioScanning_ = false;
    if (link_ != Link::none) {
      linkEnded(0);
    }
    if (std::exchange(isConnecting_, false)) {
      endedWith_ = 0;
    }
    airChanged();
    settle();
  }
  if (isPoweredOn()) {
    poweredOn();
  } else if (power_ == kPoweredOff) {
    poweredOff();
  } else if (power_ == kResetting) {
    view_.band.clear();
    isBatteryKnown_ = false;
    ++bandsForgotten_;
    cancel(Event::connectWatchdog);
    cancel(Event::authenticationRetry);
  }
}

void SessionModel::setInRange(bool isInRange) {
  isInRange_ = isInRange;
  if (!isInRange_) {
    if (isOurs()) {
      schedule(Event::supervision, seconds(5));
    }
  } else {
    cancel(Event::supervision);
    for (const auto request : std::exchange(waiting_, {})) {
      carryOut(request);
    }
  }
  airChanged();
}

void SessionModel::linkMade() {
  link_ = Link::connected;
  ++view_.connections;
  airChanged();
  if (const auto drop = std::exchange(plannedDrop_, std::nullopt)) {
    if (drop->first > kLastAuthenticationStep) {
      authenticationFailures_ = 0;
      wasServed_ = true;
    }
    linkEnded(drop->second);
    return;
  }
  authenticate();
}

void SessionModel::authenticate() {
  if (link_ != Link::connected) {
    return;
  }
  if (refusals_ == 0) {
    authenticationFailures_ = 0;
    wasServed_ = true;
    link_ = Link::setUp;
    isBatteryKnown_ = true;
    served();
    return;
  }
  --refusals_;
  if (authenticationFailures_++ < 5) {
    schedule(Event::authenticationRetry, seconds(5));
  }
}

void SessionModel::linkEnded(std::int64_t code) {
  const bool wasOurs = isOurs();
  const auto waiting = std::exchange(waiting_, {});
  if (std::ranges::find(waiting, Request::steps) != waiting.end() &&
      std::exchange(view_.isStepsActive, false)) {
    ++view_.postingsWithoutSteps;
  }
  link_ = Link::none;
  cancel(Event::supervision);
  cancel(Event::heartRate);
  airChanged();
  if (wasOurs) {
    endedWith_ = code;
  }
}

void SessionModel::ask(Request request) {
  if (isInRange_) {
    carryOut(request);
  } else if (request != Request::steps ||
             std::ranges::find(waiting_, Request::steps) == waiting_.end()) {
    // Of several reads of the steps one answer is told.
    waiting_.push_back(request);
  }
}

void SessionModel::carryOut(Request request) {
  switch (request) {
    case Request::heartRate:
      view_.isHeartRateRequested = true;
      cancel(Event::heartRate);
      schedule(Event::heartRate, seconds(8));
      break;
    case Request::heartRateContinuous:
      view_.isHeartRateRequested = true;
      cancel(Event::heartRate);
      schedule(Event::heartRate, seconds(5), seconds(5));
      break;
    case Request::steps:
      view_.isStepsActive = false;
      ++view_.stepPostings;
      break;
    case Request::time:
      view_.isSetTimeActive = false;
      break;
    case Request::battery:
      isBatteryKnown_ = true;
      break;
    case Request::authentication:
      authenticate();
      break;
  }
}

// --- The session's rules ---

void SessionModel::poweredOn() {
  view_.macToLock = lockFile_.value_or("");
  view_.state = kIdle;
  observesCapabilities_ = true;
  schedule(Event::powerOnDelay, seconds(2));
}

void SessionModel::poweredOff() {
  view_.state = kOff;
  observesCapabilities_ = false;
  giveUp();
}

void SessionModel::kick(int interval) {
  cancel(Event::watchdog);
  schedule(Event::watchdog, seconds(interval));
}

void SessionModel::kickForAlert() { kick(alertRepeat_ < 10 ? 20 : alertRepeat_ <= 100 ? 45 : 180); }

void SessionModel::watchdogFired() {
  if (view_.isConnectedMode) {
    view_.isStepsActive = false;
    view_.isStepExtraTime = false;
  } else if (view_.isStepsActive && !view_.isStepExtraTime) {
    view_.isStepExtraTime = true;
    kick(45);
  } else {
    giveUp();
  }
}

void SessionModel::startBandConnection(bool isWatched) {
  const bool isKnown = !view_.band.empty();
  if (!isKnown && wasServed_) {
    link_ = Link::none;  // of an earlier run: the band is found anew
  }
  if (link_ != Link::none && (isKnown || isAdmitted(std::string(kNoAddress)))) {
    if (!isKnown) {
      view_.band = kNoAddress;
    }
    connect();
    if (isWatched) {
      kick(45);
      view_.state = kConnected;
    }
    return;
  }
  scan(isWatched);
}

void SessionModel::scan(bool isWatched) {
  view_.state = kScanning;
  view_.isScanning = true;
  scanIsWatched_ = isWatched;
  isRadioScanning_ = isPoweredOn();
  cancel(Event::scanWatchdog);
  needsScanWatchdog_ = true;
  airChanged();
}

void SessionModel::stopScan() {
  view_.isScanning = false;
  isRadioScanning_ = false;
  cancel(Event::scanWatchdog);
  airChanged();
}

void SessionModel::advertised() {
  view_.state = kScanResult;
  if (view_.band.empty()) {
    if (!isAdmitted(std::string(kAddress))) {
      return;
    }
    view_.band = kAddress;
  }
  stopScan();
  if (scanIsWatched_) {
    kick(45);
    view_.state = kConnected;
  }
  connect();
}

bool SessionModel::isAdmitted(const std::string& mac) const {
  return view_.macToLock.empty() || view_.macToLock == mac;
}

void SessionModel::connect() {
  if (!isAdmitted(view_.band)) {
    return;
  }
  view_.state = kConnecting;
  if (isOurs()) {
    view_.state = kConnected;
    return;
  }
  isConnecting_ = true;
  needsConnectWatchdog_ = true;
}

void SessionModel::served() {
  view_.state = kConnected;
  lastDisconnectError_ = 0;
  serveRequests();
}

void SessionModel::serveRequests() {
  if (view_.isNotificationActive) {
    alertBand();
  }
  if (view_.isSetTimeActive) {
    ask(Request::time);
  }
  if (view_.isHeartRateActive) {
    if (view_.isHeartRateRequested) {
      kick(23);
    } else {
      heartRateOfBand(heartRateMode_);
    }
  }
  if (view_.isStepsActive) {
    ask(Request::steps);
  }
}

void SessionModel::serve(const std::function<void()>& action) {
  if (view_.band.empty()) {
    return;
  }
  if (link_ == Link::setUp) {
    action();
  } else if (!isOurs()) {
    connect();
  } else {
    cancel(Event::retryTick);
    scheduleRetry(Event::retryStart, seconds(1), Time::zero(), bandsForgotten_);
  }
}

void SessionModel::alertBand() {
  kickForAlert();
  const bool isKeptRaised = alertIcon_ == 1 || alertIcon_ == 4 || alertIcon_ == 26 ||
                            alertIcon_ == 27 || alertIcon_ == 28 || alertIcon_ == 30;
  if (!isKeptRaised) {
    view_.isNotificationActive = false;
  }
}

void SessionModel::heartRateOfBand(std::int64_t mode) {
  if (mode == 1) {
    kick(20);
  }
  ask(mode == 2 ? Request::heartRateContinuous : Request::heartRate);
}

void SessionModel::alert(std::uint64_t repeat, std::uint64_t icon) {
  if (view_.state == kOff || icon == 0 || repeat == 0) {
    return;
  }
  view_.isNotificationActive = true;
  alertRepeat_ = repeat;
  alertIcon_ = icon;
  if (view_.band.empty()) {
    startBandConnection(false);
    return;
  }
  kick(45);
  serve([this] { alertBand(); });
}

void SessionModel::retryTicked(int bands) {
  if (retryCount_ >= 6) {
    ++view_.givenUpRetries;
    cancel(Event::retryTick);
    return;
  }
  ++retryCount_;
  if (bands == bandsForgotten_ && link_ == Link::setUp) {
    cancel(Event::retryTick);
    serveRequests();
  }
}

void SessionModel::disconnected(std::int64_t code) {
  view_.state = kIdle;
  if (code == 0) {
    lastDisconnectError_ = 0;
    return;
  }
  const bool hasWork = view_.isNotificationActive || view_.isHeartRateActive || !isBatteryKnown_ ||
                       view_.isStepsActive || view_.isConnectedMode || view_.isSetTimeActive;
  if (!hasWork || (code == 7 && lastDisconnectError_ == 7)) {
    return;
  }
  connect();
  lastDisconnectError_ = code;
}

void SessionModel::giveUp() {
  if (view_.isStepsActive) {
    ++view_.postingsWithoutSteps;
  }
  view_.isHeartRateActive = false;
  view_.isNotificationActive = false;
  view_.isHeartRateRequested = false;
  view_.isStepsActive = false;
  view_.isStepExtraTime = false;
  view_.isSetTimeActive = false;
  heartRateMode_ = 0;
  alertRepeat_ = 1;
  alertIcon_ = 0;
  cancel(Event::watchdog);
  if (isOurs()) {
    linkEnded(0);
  }
  stopScan();
}

void SessionModel::request(const SessionStep& step) {
  switch (step.kind) {
    case Kind::alert:
      alert(static_cast<std::uint64_t>(step.first), static_cast<std::uint64_t>(step.second));
      break;
    case Kind::stop:
      alertRepeat_ = alertRepeat_ >= 11 ? 1 : alertRepeat_;
      kick(20);
      view_.isNotificationActive = false;
      break;
    case Kind::heartRate:
      if (view_.state != kOff) {
        heartRateMode_ = step.first == 3 ? heartRateMode_ : step.first;
        view_.isHeartRateActive = true;
        serve([this] { heartRateOfBand(heartRateMode_); });
        kick(45);
      }
      break;
    case Kind::steps:
      if (view_.state != kOff) {
        view_.isStepsActive = true;
        serve([this] { ask(Request::steps); });
        kick(45);
      }
      break;
    case Kind::time:
      view_.isSetTimeActive = true;
      if (link_ == Link::setUp) {
        ask(Request::time);
      } else if (!view_.band.empty() && !isOurs()) {
        connect();
      }
      break;
    case Kind::battery:
      if (link_ == Link::setUp) {
        ask(Request::battery);
      }
      break;
    case Kind::connectedMode:
      if (step.first != 0 && !view_.isConnectedMode && !view_.band.empty()) {
        connect();
      } else if (step.first == 0 && view_.isConnectedMode) {
        kick(23);
      }
      view_.isConnectedMode = step.first != 0;
      break;
    case Kind::disconnect:
      giveUp();
      break;
    case Kind::lock:
      if (!view_.band.empty()) {
        view_.macToLock = view_.band;
        lockFile_ = view_.band;
      }
      break;
    case Kind::unlock:
      view_.macToLock.clear();
      lockFile_.reset();
      startBandConnection(true);
      break;
    case Kind::lockElsewhere:
      lockFile_ = kOtherAddress;
      break;
    case Kind::capabilities:
      view_.capabilityAnswers += observesCapabilities_ ? 1 : 0;
      break;
    case Kind::scan:
      startBandConnection(false);
      break;
    case Kind::inRange:
      setInRange(step.first != 0);
      break;
    case Kind::drop:
      linkEnded(step.first);
      break;
    case Kind::refuse:
      refusals_ = step.first;
      break;
    case Kind::dropDuringSetup:
      plannedDrop_ = step;
      break;
    case Kind::failConnect:
      failsNextConnect_ = true;
      break;
    case Kind::power:
      setPower(step.first);
      break;
    case Kind::somebodyElse:
      link_ = Link::somebodyElses;
      airChanged();
      break;
    case Kind::wait:
      break;
  }
}

}  // namespace wrixel2::mbble
