#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "ctl/Context.h"

namespace wrixel2::ctl {

/// Waits for what the daemon brings about, with a line of progress for a user who watches. Ends
/// early when the daemon does, and when the band refuses the pairing key.
class Waiting {
 public:
  /// The events besides are those that make the condition true. Fails where the session cannot be
  /// followed; what happens from here on is not missed.
  static platform::Result<std::unique_ptr<Waiting>> start(const Context& context, Session& session,
                                                          SessionEvents events);

  /// None when the condition holds. An error carries its exit status: `timedOut` with the given
  /// sentence and what the daemon knows to be wrong, `notRunning`, or `failed` for a refused key.
  platform::ErrorOrNone until(const std::function<bool()>& condition, platform::TimeInterval limit,
                              std::string_view progress, std::string_view ifTimedOut);

 private:
  Waiting(const Context& context, Session& session) : context_(context), session_(session) {}
  void wait(const std::function<bool()>& condition, platform::TimeInterval limit,
            std::string_view progress);

  const Context& context_;
  Session& session_;
  bool isDaemonGone_ = false;
  bool isKeyRefused_ = false;
  std::unique_ptr<platform::Observation> following_;
};

}  // namespace wrixel2::ctl
