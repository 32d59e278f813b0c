#pragma once

#include "platform/NotificationCenter.h"
#include "platform/linux/SdBusPostings.h"

namespace wrixel2::platform::linux {

/// Bare names as the signal Posted(s name) and the method Post(s name) of org.corvale.NotifyCenter
/// on the session bus; see SdBusPostings. The suspension behaviour has no counterpart there.
class SdBusDarwinNotifyCenter final : public DarwinNotifyCenter {
 public:
  SdBusDarwinNotifyCenter(BusConnection& connection, Log& log, BusService* publisher = nullptr);

  std::unique_ptr<Observation> addObserver(std::string_view name, SuspensionBehavior behavior,
                                           Callback callback) override;
  void post(std::string_view name) override;
  ErrorOrNone serveCallers() { return postings_.serveCallers(); }

 private:
  SdBusPostings postings_;
};

}  // namespace wrixel2::platform::linux
