#include "daemon/MeasurementScheduler.h"

#include <algorithm>
#include <chrono>
#include <string>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "daemon/CheckedDictionary.h"
#include "daemon/MoveWindow.h"
#include "daemon/NextStepCheck.h"

namespace wrixel2::daemon {

namespace {

using std::chrono::seconds;

// The two heart-rate identifiers differ in one letter, deliberately: it is what tells their timers
// apart among the pending ones. No log has them.
constexpr std::string_view kPeriodicIdentifier = "com.corvalt.wrixel2";
constexpr std::string_view kContinuousIdentifier = "com.corvale.wrixel2";
constexpr std::string_view kStepIdentifier = "com.corvale.wrixel2/step";

/// In place of a step count: the band could not deliver one.
constexpr std::uint64_t kNoSteps = 999999;
/// In place of the last step count: there is none to compare with.
constexpr std::uint64_t kNoBaseline = 999998;

constexpr std::int64_t kSilently = 0;
constexpr std::int64_t kWithVibration = 1;
constexpr std::int64_t kContinuously = 2;

constexpr seconds kStartDelay{1};
constexpr seconds kContinuousInterval{30};
/// The band session gives a reading up after 90 s and says so; later than this nothing will come.
constexpr seconds kStepAnswerTime{180};
/// A reading that fails at once, without a baseline to wait a period for, is not repeated sooner.
constexpr seconds kFailedReadingPause{60};
/// Settings may hold any number of minutes; beyond a century no timer can tell the difference.
constexpr std::uint64_t kLongestInterval = std::uint64_t{60} * 24 * 365 * 100;

constexpr std::uint64_t kReminderIcon = 6;
constexpr std::uint64_t kReminderPattern = 0;

constexpr std::string_view kSkippingPeriodic = "Skipping periodic measurement due to continuous HR";
constexpr std::string_view kContinuousDisabled = "Continuous Heart Rate measurement disabled!";

}  // namespace

MeasurementScheduler::MeasurementScheduler(const platform::Platform& platform,
                                           const platform::Logger& logger, const DaemonState& state,
                                           ShellCompanion& companion,
                                           std::function<void()> datesChanged)
    : platform_(platform),
      logger_(logger),
      state_(state),
      companion_(companion),
      datesChanged_(std::move(datesChanged)),
      lastStepCount_(kNoBaseline),
      self_(std::make_shared<MeasurementScheduler*>(this)) {}

void MeasurementScheduler::start() {
  queue(kStartDelay, &MeasurementScheduler::startPeriodic);
  queue(kStartDelay, &MeasurementScheduler::startMoveReminder);
  queue(kStartDelay, &MeasurementScheduler::startContinuous);
}

void MeasurementScheduler::stop() {
  dropContinuousTimer();
  dropPeriodicTimer();
  dropStepTimer();
}

void MeasurementScheduler::startPeriodic() {
  if (state_.settings.hrInterval != 0) {
    planNextMeasurement();
    kickMiHkWatchdog();
  }
}

void MeasurementScheduler::startMoveReminder() {
  if (state_.settings.move.moveEnabled) {
    kickMiStepWatchdog();
  }
}

void MeasurementScheduler::startContinuous() {
  if (state_.settings.continuousHr) {
    kickContinuousHrWatchdog();
  }
}

// Heart rate -------------------------------------------------------------------------------------

void MeasurementScheduler::kickMiHkWatchdog() {
  dropPeriodicTimer();
  if (state_.settings.hrInterval == 0 || !state_.settings.enabled) {
    return;
  }
  logger_.info(
      fmt::format("Health Kit watchdog kicked with interval {}. Next measurement at {}",
                  state_.settings.hrInterval,
                  nextMeasurementDate_ ? platform::description(*nextMeasurementDate_) : "(null)"));
  periodicTimer_ = platform_.runLoop.persistentTimer(hrInterval(), kPeriodicIdentifier,
                                                     [this] { measureMiHeartRate(); });
  datesChanged_();
}

void MeasurementScheduler::measureMiHeartRate() {
  if (state_.settings.continuousHr) {
    logger_.info(kSkippingPeriodic);
  } else {
    sendHeartRequest(heartRequestMode());
  }
  planNextMeasurement();
  kickMiHkWatchdog();
}

void MeasurementScheduler::hrIntervalChanged() {
  if (state_.settings.hrInterval == 0 || !state_.settings.enabled) {
    dropPeriodicTimer();
    return;
  }
  planNextMeasurement();
  if (state_.settings.continuousHr) {
    logger_.info(kSkippingPeriodic);
  } else {
    sendHeartRequest(heartRequestMode());
  }
  queue({}, &MeasurementScheduler::kickMiHkWatchdog);
}

void MeasurementScheduler::kickContinuousHrWatchdog() {
  dropContinuousTimer();
  if (!state_.settings.continuousHr || !state_.settings.enabled) {
    return;
  }
  logger_.info("Continuous heart rate watchdog kicked");
  continuousTimer_ = platform_.runLoop.persistentTimer(kContinuousInterval, kContinuousIdentifier,
                                                       [this] { measureContinuousHr(); });
}

void MeasurementScheduler::measureContinuousHr() {
  if (state_.settings.continuousHr && state_.settings.enabled) {
    sendHeartRequest(kContinuously);
    kickContinuousHrWatchdog();
  }
}

void MeasurementScheduler::continuousHrChanged() {
  if (state_.settings.enabled && state_.settings.continuousHr) {
    companion_.alertUser("Continuous HR Started",
                         "Continuous Heart Rate measurement enabled!\n\nNOTE: This will impact on "
                         "your MiBand2 and iPhone battery life!");
    sendHeartRequest(kContinuously);
  } else {
    companion_.alertUser(state_.settings.enabled ? "Continuous HR Stopped" : "Tweak Disabled",
                         kContinuousDisabled);
    dropContinuousTimer();
    // A single measurement ends the band's own continuous one.
    sendHeartRequest(heartRequestMode());
  }
  queue({}, &MeasurementScheduler::kickContinuousHrWatchdog);
}

void MeasurementScheduler::measureOnDemand() {
  userRequestedHr_ = true;
  sendHeartRequest(state_.settings.continuousHr ? kContinuously : heartRequestMode());
}

void MeasurementScheduler::measureHrNotification(const platform::Dictionary& userInfo) {
  if (!std::exchange(userRequestedHr_, false)) {
    return;
  }
  const CheckedDictionary entries(userInfo, "notification", logger_);
  companion_.alertUser("Heart Rate",
                       fmt::format("Your Heart Rate: {}",
                                   platform::description(entries.displayedText("heartRate"))));
}

void MeasurementScheduler::sendHeartRequest(std::int64_t mode) {
  if (state_.band) {
    state_.band->sendHeartRequestWithMode(mode);
  }
}

std::int64_t MeasurementScheduler::heartRequestMode() const {
  return state_.settings.vibrateHrMeasure && !state_.isQuiet() ? kWithVibration : kSilently;
}

platform::TimeInterval MeasurementScheduler::hrInterval() const {
  return std::chrono::minutes(std::min(state_.settings.hrInterval, kLongestInterval));
}

void MeasurementScheduler::planNextMeasurement() {
  nextMeasurementDate_ = platform_.clock.now() + hrInterval();
}

// Move reminder ----------------------------------------------------------------------------------

void MeasurementScheduler::kickMiStepWatchdog() { armStepTimer({}); }

void MeasurementScheduler::armStepTimer(platform::TimeInterval leastDelay) {
  dropStepTimer();
  const auto& move = state_.settings.move;
  if (!move.moveEnabled || !state_.settings.enabled) {
    logger_.info("Steps not enabled ...");
    return;
  }
  const auto now = platform_.clock.now();
  const auto check =
      nextStepCheck(now, platform_.localTimeZone, move, lastStepCount_ != kNoBaseline);
  if (!check) {
    logger_.error(invalidStepConfiguration(move));
    return;
  }
  if (check->forgetsBaseline) {
    lastStepCount_ = kNoBaseline;
  }
  nextStepDate_ = std::max(check->fireDate, now + leastDelay);
  logger_.info(fmt::format(
      "Next fire date: {}, added days: {}, stepsFrom: {}, stepsTill: {}, stepsPeriod: {} "
      "lastStepCount {}",
      platform::description(*nextStepDate_), check->addedDays, move.startSteps, move.endSteps,
      move.remindPeriod, lastStepCount_));
  stepTimer_ = platform_.runLoop.persistentTimer(*nextStepDate_, kStepIdentifier,
                                                 [this] { requestSteps(); });
  datesChanged_();
}

void MeasurementScheduler::requestSteps() {
  logger_.info("Step Watchdog expired. Sending step request ...");
  nextStepDate_.reset();
  lastStepRequest_ = platform_.clock.monotonicNow();
  // Bluetooth may be off, or its answer lost with the link: the chain goes on all the same.
  stepTimer_ = platform_.runLoop.persistentTimer(kStepAnswerTime, kStepIdentifier,
                                                 [this] { kickMiStepWatchdog(); });
  if (state_.band) {
    state_.band->requestSteps();
  }
  datesChanged_();
}

void MeasurementScheduler::measureStepsNotification(const platform::Dictionary& userInfo) {
  const CheckedDictionary entries(userInfo, "notification", logger_);
  const auto steps = static_cast<std::uint64_t>(entries.longInteger("steps").value_or(0));
  const auto old = lastStepCount_;
  logger_.info(fmt::format("Received steps {}, old steps {}", steps, old));
  if (steps == kNoSteps) {
    logger_.warning("Couldn't get steps, skipping this period");
    armStepTimer(lastStepRequest_ + kFailedReadingPause - platform_.clock.monotonicNow());
    return;
  }
  lastStepCount_ = steps;
  if (old == kNoBaseline) {
    logger_.warning("No steps yet. First time to request it");
  } else if (steps == 0 || steps < old) {
    logger_.warning(
        fmt::format("Steps resetted or faulty step number {}. Last count: {}", steps, old));
  } else {
    remindToMove(steps - old);
  }
  kickMiStepWatchdog();
}

void MeasurementScheduler::remindToMove(std::uint64_t newSteps) {
  logger_.info(fmt::format("Delta steps {}", newSteps));
  const auto& move = state_.settings.move;
  if (!move.moveEnabled || newSteps > move.sensitivity || !state_.settings.enabled ||
      state_.isQuiet()) {
    return;
  }
  logger_.info("Sending STEP vibration");
  if (state_.band) {
    state_.band->notifyMiWithRepeat(move.stepRepeat, kReminderIcon, kReminderPattern, std::nullopt);
  }
}

void MeasurementScheduler::moveSettingsChanged(const MoveSettings& old) {
  const auto& move = state_.settings.move;
  if (!move.moveEnabled || !state_.settings.enabled) {
    dropStepTimer();
  } else if (!move.schedulesLike(old)) {
    lastStepCount_ = kNoBaseline;
    kickMiStepWatchdog();
  }
}

// Stopwatch --------------------------------------------------------------------------------------

void MeasurementScheduler::stopwatchChanged() {
  if (!state_.settings.enabled) {
    companion_.alertUser("Tweak is not enabled", "Aborting...");
    return;
  }
  auto date = platform_.clock.now();
  if (state_.settings.stopwatchSwitch) {
    // The band has no stopwatch: its clock counts up from here, and is set right at the end.
    auto components = componentsFromDate(date, platform_.localTimeZone);
    components.hour = 0;
    components.minute = 0;
    components.second = 1;
    date = dateFromComponents(components, platform_.localTimeZone);
  }
  if (state_.band) {
    state_.band->setDateTime(date);
  }
  if (state_.settings.stopwatchSwitch) {
    companion_.alertUser("Stopwatch started", "Let's start!");
  }
}

void MeasurementScheduler::stopWatchStop(const platform::Dictionary& userInfo) {
  const CheckedDictionary entries(userInfo, "notification", logger_);
  companion_.alertUser("Stopwatch stopped",
                       platform::description(entries.displayedText("timeDifference")));
}

// Timers -----------------------------------------------------------------------------------------

std::optional<platform::Date> MeasurementScheduler::nextMeasurement() const {
  return periodicTimer_ ? nextMeasurementDate_ : std::nullopt;
}

std::optional<platform::Date> MeasurementScheduler::nextStepReading() const {
  return nextStepDate_;
}

void MeasurementScheduler::dropPeriodicTimer() {
  periodicTimer_.reset();
  datesChanged_();
}

void MeasurementScheduler::dropContinuousTimer() { continuousTimer_.reset(); }

void MeasurementScheduler::dropStepTimer() {
  stepTimer_.reset();
  nextStepDate_.reset();
  datesChanged_();
}

void MeasurementScheduler::queue(platform::TimeInterval delay,
                                 void (MeasurementScheduler::*work)()) {
  platform_.runLoop.mainQueue().after(delay,
                                      [weak = std::weak_ptr<MeasurementScheduler*>(self_), work] {
                                        if (const auto self = weak.lock()) {
                                          ((*self)->*work)();
                                        }
                                      });
}

}  // namespace wrixel2::daemon
