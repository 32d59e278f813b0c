#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/SdBusPostings.h"

namespace wrixel2::platform::linux {

/// Notifications as the signal Posted(s name, s object, a{sv} userInfo) of
/// org.corvale.DistributedNotificationCenter on the session bus; an empty object is none.
class SdBusDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  SdBusDistributedNotificationCenter(BusConnection& connection, Log& log);

  std::unique_ptr<Observation> addObserver(std::string_view name, Callback callback) override;
  void post(const Notification& notification) override;

 private:
  SdBusPostings postings_;
};

}  // namespace wrixel2::platform::linux
