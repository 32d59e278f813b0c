#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Log.h"
#include "platform/RunLoop.h"
#include "platform/UUID.h"
#include "platform/linux/bluez/BluezBus.h"

namespace wrixel2::platform::bluez {

/// Keeps bluetoothd's discovery on, or off, as it is wanted.
class BluezScanner {
 public:
  static constexpr TimeInterval kTimeout = std::chrono::seconds(60);
  /// After a start that failed, or a discovery that ended by itself: doubled from the first to the
  /// last.
  static constexpr TimeInterval kFirstRetry = std::chrono::seconds(1);
  static constexpr TimeInterval kLastRetry = std::chrono::seconds(8);

  struct Wish {
    std::string adapter;
    /// None: whatever is on the air.
    std::optional<std::vector<UUID>> services;

    friend bool operator==(const Wish&, const Wish&) = default;
  };

  /// All outlive it; what answers the bus's calls ends before it. `changed` is called when
  /// isIdle() has changed, from a turn of the loop.
  BluezScanner(BluezBus& bus, RunLoop& loop, const Logger& logger, Task changed);

  /// None: no discovery.
  void want(const std::optional<Wish>& wish);
  /// Whether what is wanted is on.
  bool isRunning() const { return phase_ == Phase::running && running_ == wish_; }
  /// Whether nothing of ours is on, nor about to be.
  bool isIdle() const { return phase_ == Phase::idle; }

  /// The adapter's property; only of the adapter that is wanted.
  void discoveringChanged(bool isDiscovering);
  /// bluetoothd has gone, with our discovery and whatever was pending.
  void bluezLost();

 private:
  enum class Phase : std::uint8_t { idle, filtering, starting, running, stopping };

  void step();
  void setFilter();
  void start();
  void stop();
  void becomeIdle();
  void retryLater();
  void endRetries();
  void logFailure(std::string_view what, const BluezReply& reply) const;

  BluezBus& bus_;
  RunLoop& loop_;
  const Logger& logger_;
  Task changed_;
  Phase phase_ = Phase::idle;
  std::optional<Wish> wish_;
  std::optional<Wish> running_;  ///< what was last asked of bluetoothd
  bool isStarted_ = false;       ///< a discovery of ours is on, for all we know
  std::unique_ptr<Timer> retryTimer_;
  TimeInterval retryDelay_ = kFirstRetry;
  std::optional<bool> isDiscovering_;
};

}  // namespace wrixel2::platform::bluez
