#include "ctl/Waiting.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "ctl/TextRows.h"

namespace wrixel2::ctl {

platform::Result<std::unique_ptr<Waiting>> Waiting::start(const Context& context, Session& session,
                                                          SessionEvents events) {
  std::unique_ptr<Waiting> waiting(new Waiting(context, session));
  events.statusChanged = [raw = waiting.get(), told = std::move(events.statusChanged)](
                             const platform::Dictionary& changed) {
    if (const auto verdict = platform::textForKey(changed, "Authentication")) {
      raw->isKeyRefused_ = *verdict == "refused";
    }
    if (told) {
      told(changed);
    }
  };
  events.peerChanged = [raw = waiting.get()](Peer peer, bool runs) {
    raw->isDaemonGone_ = raw->isDaemonGone_ || (peer == Peer::daemon && !runs);
  };
  auto following = session.follow(std::move(events));
  if (!following) {
    return failure(ExitStatus::failed, following.error().localizedDescription);
  }
  waiting->following_ = std::move(*following);
  return waiting;
}

platform::ErrorOrNone Waiting::until(const std::function<bool()>& condition,
                                     platform::TimeInterval limit, std::string_view progress,
                                     std::string_view ifTimedOut) {
  wait([&] { return isDaemonGone_ || isKeyRefused_ || condition(); }, limit, progress);
  context_.console.setProgress({});
  if (condition()) {
    return std::nullopt;
  }
  if (isDaemonGone_) {
    return failure(ExitStatus::notRunning, "the daemon has ended meanwhile");
  }
  if (isKeyRefused_) {
    return failure(ExitStatus::failed, std::string(kKeyRefused));
  }
  const auto status = session_.properties(Peer::daemon);
  const std::string problem =
      status && *status ? platform::textForKey(**status, "Problem").value_or("") : "";
  return failure(ExitStatus::timedOut,
                 problem.empty()
                     ? std::string(ifTimedOut)
                     : fmt::format("{} (the daemon says: {})", ifTimedOut, printable(problem)));
}

void Waiting::wait(const std::function<bool()>& condition, platform::TimeInterval limit,
                   std::string_view progress) {
  if (!context_.console.showsProgress()) {
    session_.waitUntil(condition, limit);
    return;
  }
  const platform::TimeInterval step = std::chrono::seconds(1);
  for (platform::TimeInterval passed{}; passed < limit; passed += step) {
    if (passed >= step) {
      context_.console.setProgress(
          fmt::format("{} ({} of at most {} s)", progress,
                      std::chrono::duration_cast<std::chrono::seconds>(passed).count(),
                      std::chrono::duration_cast<std::chrono::seconds>(limit).count()));
    }
    if (session_.waitUntil(condition, std::min(step, limit - passed))) {
      return;
    }
  }
}

}  // namespace wrixel2::ctl
