#pragma once

#include <memory>

#include "ctl/Session.h"
#include "platform/linux/LinuxRunLoop.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::ctl {

/// The session on its message bus.
class BusSession final : public Session {
 public:
  /// The loop outlives the session.
  static platform::Result<std::unique_ptr<Session>> open(platform::linux::LinuxRunLoop& loop);

  platform::Result<bool> isRunning(Peer peer) override;
  platform::Result<std::optional<platform::Dictionary>> properties(Peer peer) override;
  platform::ErrorOrNone tellDaemon(std::string_view message,
                                   const platform::Dictionary& userInfo) override;
  platform::ErrorOrNone post(std::string_view name) override;
  platform::ErrorOrNone post(const platform::Notification& notification) override;
  [[nodiscard]] platform::Result<std::unique_ptr<platform::Observation>> follow(
      SessionEvents events) override;
  bool waitUntil(const std::function<bool()>& condition, platform::TimeInterval limit) override;
  bool serveUntilInterrupted() override;

 private:
  BusSession(platform::linux::LinuxRunLoop& loop,
             std::unique_ptr<platform::linux::BusConnection> bus);

  platform::ErrorOrNone callDaemon(platform::linux::BusAddress object, std::string_view member,
                                   std::string_view signature, const platform::Array& arguments);

  platform::linux::LinuxRunLoop& loop_;
  std::unique_ptr<platform::linux::BusConnection> bus_;
  bool isLost_ = false;
};

}  // namespace wrixel2::ctl
