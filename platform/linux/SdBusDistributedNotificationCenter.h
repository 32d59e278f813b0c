#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/SdBusPostings.h"

namespace wrixel2::platform::linux {

/// Notifications as the signal Posted(s name, s object, a{sv} userInfo) and the method Post of the
/// same arguments of org.corvale.DistributedNotificationCenter on the session bus; an empty object
/// is none. See SdBusPostings.
class SdBusDistributedNotificationCenter final : public DistributedNotificationCenter {
 public:
  SdBusDistributedNotificationCenter(BusConnection& connection, Log& log,
                                     BusService* publisher = nullptr);

  /// What arguments of that form say.
  static Notification notificationFromArguments(const Array& arguments);

  std::unique_ptr<Observation> addObserver(std::string_view name, Callback callback) override;
  void post(const Notification& notification) override;
  ErrorOrNone serveCallers() { return postings_.serveCallers(); }

 private:
  SdBusPostings postings_;
};

}  // namespace wrixel2::platform::linux
