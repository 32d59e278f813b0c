#include "daemon/ForwardingRules.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <fmt/format.h>

namespace wrixel2::daemon {

namespace {

constexpr std::string_view kClockApp = "com.apple.mobiletimer";
constexpr std::string_view kPhoneApp = "com.apple.mobilephone";
/// The title of the notice that an alarm sleeps, which is no alarm.
constexpr std::string_view kSnoozingTitle = "Snoozing";
constexpr std::uint64_t kModePerAppAndSender = 1;

bool isRingingAlarm(const Bulletin& bulletin) {
  return bulletin.sectionID == kClockApp && bulletin.title && *bulletin.title != kSnoozingTitle;
}

/// Senders that are both absent are different ones on purpose: who sent the notification is then
/// not known, and it is better shown.
bool isSameSender(const std::optional<std::string>& one, const std::optional<std::string>& other) {
  return one && other && *one == *other;
}

/// More apps than a phone has.
constexpr std::size_t kMostRemembered = 256;

bool isRecent(const MsgInfo& forwarded, const Settings& settings, platform::MonotonicTime now) {
  const auto elapsed = std::chrono::floor<std::chrono::seconds>(now - forwarded.moment());
  return static_cast<std::uint64_t>(elapsed.count()) < settings.timeout;
}

bool isWithinQuietTime(const Bulletin& bulletin, const Settings& settings,
                       platform::MonotonicTime now, const ForwardingHistory& history) {
  const auto last = history.find(bulletin.sectionID);
  if (last == history.end()) {
    return false;
  }
  if (settings.mode == kModePerAppAndSender &&
      !isSameSender(last->second.sender(), bulletin.sender)) {
    return false;
  }
  return isRecent(last->second, settings, now);
}

ForwardingRule decidingRule(const Bulletin& bulletin, const Settings& settings,
                            const ForwardingCircumstances& circumstances,
                            const ForwardingHistory& history) {
  // An alarm wakes its owner: it passes Do Not Disturb, the lock rule and the quiet time on
  // purpose.
  if (settings.enabled && settings.alarmSwitch && isRingingAlarm(bulletin)) {
    return ForwardingRule::enhancedAlarm;
  }
  if (!settings.enabled) {
    return ForwardingRule::disabled;
  }
  if (settings.doNotDisturb && circumstances.dndActive) {
    return ForwardingRule::doNotDisturb;
  }
  if (settings.onlyLocked && !circumstances.deviceLocked) {
    return ForwardingRule::onlyLocked;
  }
  if (bulletin.sectionID == kPhoneApp) {
    return ForwardingRule::phoneApp;
  }
  if (bulletin.sectionID == kClockApp && !bulletin.title) {
    return ForwardingRule::clockWithoutTitle;
  }
  if (settings.doNotAnnoy && isWithinQuietTime(bulletin, settings, circumstances.now, history)) {
    return ForwardingRule::doNotAnnoy;
  }
  return ForwardingRule::forward;
}

}  // namespace

std::string_view reasonOf(ForwardingRule rule) {
  switch (rule) {
    case ForwardingRule::enhancedAlarm:
    case ForwardingRule::forward:
      return {};
    case ForwardingRule::disabled:
      return "the service is switched off";
    case ForwardingRule::doNotDisturb:
      return "Do Not Disturb is on";
    case ForwardingRule::onlyLocked:
      return "the phone is not locked";
    case ForwardingRule::phoneApp:
      return "calls are alerted as calls";
    case ForwardingRule::clockWithoutTitle:
      return "an alarm without a title";
    case ForwardingRule::doNotAnnoy:
      return "too soon after the last one";
  }
  return {};
}

BandAlert enhancedAlarmAlert() { return {.repeat = 20, .icon = 27, .pattern = 8, .text = {}}; }

BandAlert callAlert(std::optional<std::string> text) {
  return {.repeat = 2, .icon = 29, .pattern = 8, .text = std::move(text)};
}

ForwardingDecision decideForwarding(const Bulletin& bulletin, const Settings& settings,
                                    const ForwardingCircumstances& circumstances,
                                    const ForwardingHistory& history,
                                    const platform::Logger& logger) {
  ForwardingDecision decision{.rule = decidingRule(bulletin, settings, circumstances, history),
                              .alert = {}};
  if (decision.rule == ForwardingRule::enhancedAlarm) {
    decision.alert = enhancedAlarmAlert();
  } else if (decision.rule == ForwardingRule::forward) {
    decision.alert = alertOfApp(
        settings, bulletin.sectionID,
        bulletin.title ? fmt::format("{}:{}", *bulletin.title, bulletin.message) : bulletin.message,
        logger);
  }
  return decision;
}

void remember(ForwardingHistory& history, const std::string& sectionID, MsgInfo forwarded,
              const Settings& settings) {
  const auto now = forwarded.moment();
  std::erase_if(history, [&](const auto& entry) { return !isRecent(entry.second, settings, now); });
  history.erase(sectionID);
  if (history.size() == kMostRemembered) {
    history.erase(std::ranges::min_element(
        history, {}, [](const auto& entry) { return entry.second.moment(); }));
  }
  history.emplace(sectionID, std::move(forwarded));
}

BandAlert alertOfApp(const Settings& settings, std::string_view sectionID, std::string text,
                     const platform::Logger& logger) {
  const auto app = settings.alertOfApp(sectionID, logger);
  BandAlert alert{.repeat = app.repeat, .icon = app.icon, .pattern = app.pattern, .text = {}};
  if (app.preview) {
    alert.text = std::move(text);
  }
  return alert;
}

}  // namespace wrixel2::daemon
