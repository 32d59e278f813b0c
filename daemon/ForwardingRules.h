#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "daemon/MsgInfo.h"
#include "daemon/Settings.h"
#include "platform/Clock.h"
#include "platform/Log.h"

namespace wrixel2::daemon {

/// A notification as the shell companion reports it.
struct Bulletin {
  std::string sectionID;
  std::optional<std::string> title;
  std::string message;
  std::optional<std::string> sender;
};

/// What the band is asked to show.
struct BandAlert {
  std::uint64_t repeat = 0;
  std::uint64_t icon = 0;
  std::uint64_t pattern = 0;
  std::optional<std::string> text;

  friend bool operator==(const BandAlert&, const BandAlert&) = default;
};

/// The alert of a clock alarm in enhanced mode, and of a ringing call with its caller's text.
BandAlert enhancedAlarmAlert();
BandAlert callAlert(std::optional<std::string> text);

/// The rule that decided about a notification.
enum class ForwardingRule : std::uint8_t {
  enhancedAlarm,      ///< to the band, whatever else is set
  disabled,           ///< dropped: the service is off
  doNotDisturb,       ///< dropped
  onlyLocked,         ///< dropped: the phone is in use
  phoneApp,           ///< dropped: calls come as messages of their own
  clockWithoutTitle,  ///< dropped
  doNotAnnoy,         ///< dropped: too soon after the last one
  forward             ///< to the band, as the app's settings say
};

/// Why a notification was dropped, for the log; empty for the rules that send it to the band.
std::string_view reasonOf(ForwardingRule rule);

/// What the decision depends on beside the settings and the notification.
struct ForwardingCircumstances {
  bool dndActive = false;
  bool deviceLocked = true;
  platform::MonotonicTime now;
};

struct ForwardingDecision {
  ForwardingRule rule = ForwardingRule::disabled;
  /// None where the notification is dropped.
  std::optional<BandAlert> alert;
};

/// Decides whether a notification goes to the band; the first rule that applies does. Changes
/// nothing: the caller keeps the history.
ForwardingDecision decideForwarding(const Bulletin& bulletin, const Settings& settings,
                                    const ForwardingCircumstances& circumstances,
                                    const ForwardingHistory& history,
                                    const platform::Logger& logger);

/// Keeps that the app's notification was forwarded. What is no longer within the quiet time decides
/// nothing and goes; should many apps be within it, the one that was forwarded first does.
void remember(ForwardingHistory& history, const std::string& sectionID, MsgInfo forwarded,
              const Settings& settings);

/// The alert as the app's settings say, with the text only where its preview is on.
BandAlert alertOfApp(const Settings& settings, std::string_view sectionID, std::string text,
                     const platform::Logger& logger);

}  // namespace wrixel2::daemon
