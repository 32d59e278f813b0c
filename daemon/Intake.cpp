#include "daemon/Intake.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::daemon {

namespace {

using std::chrono::minutes;
using std::chrono::seconds;

constexpr platform::TimeInterval kPauses[] = {seconds(1), seconds(5), seconds(30),
                                              minutes(1), minutes(2), minutes(5)};

std::size_t sizeOf(const platform::Dictionary& userInfo);

std::size_t sizeOf(const platform::Value& value) {
  std::size_t bytes = sizeof(value);
  if (const auto* text = value.text()) {
    bytes += text->size();
  } else if (const auto* data = value.data()) {
    bytes += data->size();
  } else if (const auto* array = value.array()) {
    for (const auto& element : *array) {
      bytes += sizeOf(element);
    }
  } else if (const auto* dictionary = value.dictionary()) {
    bytes += sizeOf(*dictionary);
  }
  return bytes;
}

std::size_t sizeOf(const platform::Dictionary& userInfo) {
  std::size_t bytes = 0;
  for (const auto& [key, value] : userInfo) {
    bytes += sizeof(key) + key.size() + sizeOf(value);
  }
  return bytes;
}

}  // namespace

Intake::Intake(platform::RunLoop& loop, ShellCompanion& companion, platform::Log& log,
               std::function<void()> problemChanged)
    : loop_(loop),
      companion_(companion),
      logger_(log, "Intake"),
      problemChanged_(std::move(problemChanged)),
      backoff_(kPauses) {}

void Intake::act(const platform::Dictionary& userInfo, const Work& work) {
  const bool isTold = hasSettings_ || isAlone_;
  const bool mayPass = waiting_.empty() ? isTold : isUnanswered_ && hasSettings_;
  if (mayPass && !isRunning_) {
    isRunning_ = true;
    work(userInfo);
    isRunning_ = false;
    proceed();
    return;
  }
  waiting_.push_back({.name = {},
                      .settingsWork = {},
                      .question = isTold ? 0 : std::max<std::uint64_t>(asked_, 1),
                      .work = work,
                      .userInfo = userInfo,
                      .bytes = sizeOf(userInfo)});
  waitingBytes_ += waiting_.back().bytes;
  makeRoom();
  proceed();
}

void Intake::actOnSettings(std::string_view name, SettingsWork work) {
  const auto same = std::ranges::find_if(waiting_, [&](const Item& item) {
    // An answer still to come may serve one that was asked for, unless it is late already.
    return item.name == name && item.question > (isUnanswered_ ? answered_ : asked_);
  });
  if (same != waiting_.end()) {
    same->question = asked_ + 1;
    proceed();
    return;
  }
  Item item{.name = std::string(name),
            .settingsWork = std::move(work),
            .question = asked_ + 1,
            .work = {},
            .userInfo = {}};
  waiting_.insert(isRunning_ ? waiting_.begin() : waiting_.end(), std::move(item));
  proceed();
}

void Intake::makeRoom() {
  while (waiting_.size() > kMostWaiting || waitingBytes_ > kMostWaitingBytes) {
    const auto oldest =
        std::find_if_not(waiting_.begin(), waiting_.end(), std::mem_fn(&Item::needsSettings));
    if (oldest == waiting_.end()) {
      return;
    }
    waitingBytes_ -= oldest->bytes;
    waiting_.erase(oldest);
    if (dropped_++ == 0) {
      logger_.warning("Too much waits for the settings; what has waited longest is dropped");
    }
  }
}

void Intake::proceed() {
  if (isRunning_) {
    return;
  }
  isRunning_ = true;
  while (!waiting_.empty() && waiting_.front().question <= answered_) {
    const Item item = std::move(waiting_.front());
    waiting_.pop_front();
    run(item);
  }
  isRunning_ = false;
  if (waiting_.empty() && dropped_ != 0) {
    logger_.warning(
        fmt::format("{} messages and notifications were dropped", std::exchange(dropped_, 0)));
  }
  // What has failed is asked again in its time, and what is new at once.
  if (question_ == nullptr &&
      std::ranges::any_of(waiting_, [this](const Item& item) { return item.question > asked_; })) {
    ask();
  }
}

void Intake::run(const Item& item) {
  waitingBytes_ -= item.bytes;
  if (item.needsSettings()) {
    item.settingsWork(reading_);
  } else {
    item.work(item.userInfo);
  }
}

// The question -----------------------------------------------------------------------------------

void Intake::ask() {
  ++asked_;
  auto pending = companion_.askForPrefsDict(
      [this, question = asked_](const platform::Result<platform::Dictionary>& answer) {
        answered(question, answer);
      });
  if (!pending) {
    goOnWithoutAnswer(pending.error().localizedDescription);
    return;
  }
  question_ = std::move(*pending);
  patience_ = loop_.scheduledTimer(
      kPatience, false, [this] { goOnWithoutAnswer("it has not answered within two seconds"); });
}

void Intake::answered(std::uint64_t question,
                      const platform::Result<platform::Dictionary>& answer) {
  question_.reset();
  if (!answer && answer.error().code != platform::MessageCenter::kNobodyServes) {
    goOnWithoutAnswer(answer.error().localizedDescription);
    return;
  }
  patience_.reset();
  nextAttempt_.reset();
  backoff_.reset();
  if (answer) {
    hasSettings_ = true;
    isAlone_ = false;
  } else if (!std::exchange(isAlone_, true)) {
    logger_.warning(
        fmt::format("No settings from the shell companion, {}: {}",
                    hasSettings_ ? "those last read stay in force" : "using the defaults",
                    description(answer.error())));
  }
  setUnanswered(false);
  answered_ = question;
  reading_ = answer ? &*answer : nullptr;
  proceed();
  reading_ = nullptr;
}

void Intake::goOnWithoutAnswer(std::string_view why) {
  patience_.reset();
  // What is announced meanwhile is asked for at once, and leaves the pauses as they are.
  if (nextAttempt_ == nullptr || !nextAttempt_->isValid()) {
    nextAttempt_ = loop_.scheduledTimer(backoff_.next(), false, [this] { ask(); });
  }
  if (!isUnanswered_) {
    logger_.warning(fmt::format(
        "No settings from the shell companion, {}: {}",
        hasSettings_ ? "those last read stay in force" : "nothing starts without them", why));
  }
  setUnanswered(true);
  if (!hasSettings_) {
    return;
  }
  // Only what announced a change waits on.
  isRunning_ = true;
  for (Item& item : std::exchange(waiting_, {})) {
    if (item.needsSettings()) {
      waiting_.push_back(std::move(item));
    } else {
      run(item);
    }
  }
  isRunning_ = false;
}

void Intake::setUnanswered(bool isUnanswered) {
  if (std::exchange(isUnanswered_, isUnanswered) != isUnanswered) {
    problemChanged_();
  }
}

std::string Intake::problem() const {
  if (!isUnanswered_) {
    return {};
  }
  return fmt::format(
      "The shell companion (wrixel2-companion) does not answer, and {}; starting it anew may help: "
      "systemctl --user restart wrixel2-companion",
      hasSettings_ ? "the settings last read stay in force"
                   : "nothing starts without its settings");
}

}  // namespace wrixel2::daemon
