#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Date.h"
#include "platform/NotificationCenter.h"
#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::ctl {

/// The two programs that serve the owner.
enum class Peer : std::uint8_t { daemon, companion };

/// What happens in the session; those that are set are called.
struct SessionEvents {
  /// The daemon's status properties that have another value now.
  std::function<void(const platform::Dictionary& changed)> statusChanged;
  /// What one of the two has posted; nobody else is believed.
  std::function<void(const std::string& name)> posted;
  std::function<void(Peer by, const platform::Notification& notification)> distributed;
  /// A program came, or went.
  std::function<void(Peer peer, bool runs)> peerChanged;
};

/// The owner's session, as far as this program has to do with it. Events come only while
/// something is waited for.
class Session {
 public:
  virtual ~Session() = default;

  virtual platform::Result<bool> isRunning(Peer peer) = 0;
  /// What the program tells of itself: the daemon's status, the companion's properties. None where
  /// it does not run; what an older one does not tell is not in it.
  virtual platform::Result<std::optional<platform::Dictionary>> properties(Peer peer) = 0;

  /// A message to the daemon, which has answered it when this returns.
  virtual platform::ErrorOrNone tellDaemon(std::string_view message,
                                           const platform::Dictionary& userInfo) = 0;
  /// To the daemon, which has it queued for its observers when these return.
  virtual platform::ErrorOrNone post(std::string_view name) = 0;
  virtual platform::ErrorOrNone post(const platform::Notification& notification) = 0;

  /// In force when it returns, until the handle is destroyed, before the session.
  [[nodiscard]] virtual platform::Result<std::unique_ptr<platform::Observation>> follow(
      SessionEvents events) = 0;

  /// Serves events until the condition holds; false when the time is over before, or the session
  /// has ended.
  virtual bool waitUntil(const std::function<bool()>& condition, platform::TimeInterval limit) = 0;
  /// Serves events until the user ends it; false when the session ended instead.
  virtual bool serveUntilInterrupted() = 0;
};

}  // namespace wrixel2::ctl
