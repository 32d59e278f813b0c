#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "daemon/DaemonState.h"
#include "daemon/ShellCompanion.h"
#include "platform/Log.h"
#include "platform/Platform.h"

namespace wrixel2::daemon {

/// Asks the band for measurements when they are due: heart rate periodically, continuously and on
/// demand, steps for the move reminder; and runs the stopwatch.
///
/// Each of the three chains has at most one live timer. A chain ends by itself when, at its next
/// turn, its switch or the service is off; stop() cuts all of them at once.
class MeasurementScheduler {
 public:
  /// The state and the companion are borrowed. The callback is told when a next date has changed.
  MeasurementScheduler(const platform::Platform& platform, const platform::Logger& logger,
                       const DaemonState& state, ShellCompanion& companion,
                       std::function<void()> datesChanged);
  MeasurementScheduler(const MeasurementScheduler&) = delete;
  MeasurementScheduler& operator=(const MeasurementScheduler&) = delete;

  /// Arms the chains that the settings ask for, one second from now.
  void start();
  void stop();

  // What the preferences pane announced; the settings have been read again where they changed.
  void measureOnDemand();
  void hrIntervalChanged();
  void continuousHrChanged();
  void stopwatchChanged();
  void moveSettingsChanged(const MoveSettings& old);

  // What the band side answers.
  void measureHrNotification(const platform::Dictionary& userInfo);
  void measureStepsNotification(const platform::Dictionary& userInfo);
  void stopWatchStop(const platform::Dictionary& userInfo);

  void kickMiHkWatchdog();
  void kickContinuousHrWatchdog();
  void kickMiStepWatchdog();

  /// When the periodic measurement and the step counter's reading are due; none when they are not.
  std::optional<platform::Date> nextMeasurement() const;
  std::optional<platform::Date> nextStepReading() const;

 private:
  void measureMiHeartRate();
  void measureContinuousHr();
  void requestSteps();

  void remindToMove(std::uint64_t newSteps);

  void dropPeriodicTimer();
  void dropContinuousTimer();
  void dropStepTimer();
  void armStepTimer(platform::TimeInterval leastDelay);
  void planNextMeasurement();
  /// Runs later on the main queue, for as long as this lives.
  void queue(platform::TimeInterval delay, void (MeasurementScheduler::*work)());
  void startPeriodic();
  void startMoveReminder();
  void startContinuous();

  void sendHeartRequest(std::int64_t mode);
  std::int64_t heartRequestMode() const;
  platform::TimeInterval hrInterval() const;

  const platform::Platform& platform_;
  platform::Logger logger_;
  const DaemonState& state_;
  ShellCompanion& companion_;
  std::function<void()> datesChanged_;

  std::unique_ptr<platform::Timer> periodicTimer_;
  std::unique_ptr<platform::Timer> continuousTimer_;
  /// Until the reading, and from then on until its answer: one chain, one timer.
  std::unique_ptr<platform::Timer> stepTimer_;
  std::optional<platform::Date> nextMeasurementDate_;
  std::optional<platform::Date> nextStepDate_;
  platform::MonotonicTime lastStepRequest_;
  bool userRequestedHr_ = false;
  std::uint64_t lastStepCount_;
  /// Expires with this object, so that queued work can tell.
  std::shared_ptr<MeasurementScheduler*> self_;
};

}  // namespace wrixel2::daemon
