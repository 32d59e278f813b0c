#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>

#include "platform/linux/SdBus.h"

namespace wrixel2::bandview {

/// Serves org.freedesktop.Notifications (Desktop Notifications Specification 1.2) on the session
/// bus, so that what is sent by notify-send arrives somewhere.
class NotificationServer {
 public:
  struct Notification {
    std::string app;
    std::string title;
    std::string body;
  };
  using Callback = std::function<void(const Notification& notification)>;

  /// Fails when another program serves the name. The bus outlives the server.
  static platform::Result<std::unique_ptr<NotificationServer>> start(
      platform::linux::BusConnection& bus, Callback callback);

 private:
  /// More than these are not kept: the oldest expires.
  static constexpr std::size_t kMostOpen = 64;
  /// Why a notification is closed, as Desktop Notifications 1.2 numbers it.
  enum class Reason : std::uint32_t { expired = 1, closedByCall = 3 };

  NotificationServer(platform::linux::BusConnection& bus, Callback callback)
      : bus_(bus), callback_(std::move(callback)) {}

  platform::ErrorOrNone serve();
  void notify(const platform::linux::BusMessage& call);
  void close(const platform::linux::BusMessage& call);
  std::uint32_t open(std::uint32_t replaced);
  void emitClosed(std::uint32_t id, Reason reason) const;

  platform::linux::BusConnection& bus_;
  Callback callback_;
  platform::linux::BusSlot interface_;
  std::deque<std::uint32_t> open_;  ///< oldest first
  std::uint32_t lastId_ = 0;
};

}  // namespace wrixel2::bandview
