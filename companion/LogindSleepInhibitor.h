#pragma once

#include "companion/SleepInhibitor.h"
#include "platform/Log.h"
#include "platform/linux/FileDescriptor.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// A delay lock of the login manager (org.freedesktop.login1, system bus). Without login manager
/// or bus nothing holds the phone back, and nothing is said.
class LogindSleepInhibitor final : public SleepInhibitor {
 public:
  explicit LogindSleepInhibitor(platform::Log& log) : logger_(log, "SleepInhibitor") {}

  /// The bus stays until busLost(). A lock outlasts the bus that it was asked for on.
  void busFound(const platform::linux::BusConnection& systemBus);
  void busLost();

  void take() override;
  void giveBack() override;

 private:
  void ask();
  void answered(const platform::linux::BusMessage& reply);

  platform::Logger logger_;
  const platform::linux::BusConnection* bus_ = nullptr;
  bool isWanted_ = false;
  bool isRefusalLogged_ = false;
  platform::linux::BusSlot pending_;
  /// The lock: it is given back by closing it.
  platform::linux::FileDescriptor lock_;
};

}  // namespace wrixel2::companion
