#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/ShellCompanion.h"
#include "platform/Backoff.h"
#include "platform/Log.h"
#include "platform/MessageCenter.h"
#include "platform/RunLoop.h"
#include "platform/Value.h"

namespace wrixel2::daemon {

/// The order in which the daemon acts on what reaches it, each with the settings of its moment.
///
/// What announces changed settings is acted on when they have been read, and what comes after it
/// waits for that, so that the first notification of an app finds the app's settings. Questions for
/// the settings merge: one is under way, and at most one more is due.
///
/// A companion that does not answer is asked again, with pauses that grow; until then a late answer
/// counts. Meanwhile the settings last read hold, and after two seconds nothing waits but
/// what announced a change. Before the first answer everything waits: the defaults are nobody's
/// choice, and hold only where nobody serves the companion's center.
class Intake {
 public:
  static constexpr platform::TimeInterval kPatience = std::chrono::seconds(2);
  /// Beyond either, what has waited longest is dropped.
  static constexpr std::size_t kMostWaiting = 256;
  static constexpr std::size_t kMostWaitingBytes = std::size_t{1} << 20;

  using Work = std::function<void(const platform::Dictionary& userInfo)>;
  /// Gets the settings as the companion has told them; none where nobody serves its center.
  using SettingsWork = std::function<void(const platform::Dictionary* settings)>;

  /// Loop and companion outlive it. The callback is told when problem() has changed.
  Intake(platform::RunLoop& loop, ShellCompanion& companion, platform::Log& log,
         std::function<void()> problemChanged);
  Intake(const Intake&) = delete;
  Intake& operator=(const Intake&) = delete;

  /// Does the work, after what waits.
  void act(const platform::Dictionary& userInfo, const Work& work);
  /// Reads the settings, then does the work. One of the same name for which the question has not
  /// been asked yet is the same. Called by work that is being done, it comes before what waits.
  void actOnSettings(std::string_view name, SettingsWork work);

  /// That the companion does not answer, and what mends it; empty when nothing is known.
  std::string problem() const;

 private:
  /// One of the two kinds of work. It needs the answer to this question or a later one.
  struct Item {
    std::string name;
    SettingsWork settingsWork;
    std::uint64_t question = 0;
    Work work;
    platform::Dictionary userInfo;
    std::size_t bytes = 0;

    bool needsSettings() const { return settingsWork != nullptr; }
  };

  void proceed();
  void run(const Item& item);
  void makeRoom();
  void ask();
  void answered(std::uint64_t question, const platform::Result<platform::Dictionary>& answer);
  void goOnWithoutAnswer(std::string_view why);
  void setUnanswered(bool isUnanswered);

  platform::RunLoop& loop_;
  ShellCompanion& companion_;
  platform::Logger logger_;
  std::function<void()> problemChanged_;
  std::deque<Item> waiting_;
  std::size_t waitingBytes_ = 0;
  std::size_t dropped_ = 0;
  bool isRunning_ = false;
  /// Questions are counted: the last one that was asked, and the last one that was answered.
  std::uint64_t asked_ = 0;
  std::uint64_t answered_ = 0;
  std::unique_ptr<platform::PendingAnswer> question_;
  std::unique_ptr<platform::Timer> patience_;
  std::unique_ptr<platform::Timer> nextAttempt_;
  platform::Backoff backoff_;
  /// While the work that an answer allows is done.
  const platform::Dictionary* reading_ = nullptr;
  bool hasSettings_ = false;
  bool isUnanswered_ = false;
  bool isAlone_ = false;  ///< nobody serves the companion's center, and a line has said so
};

}  // namespace wrixel2::daemon
