#pragma once

#include <memory>
#include <string>

#include "companion/LockWitness.h"
#include "platform/linux/PropertyWatch.h"

namespace wrixel2::companion {

/// logind's session of this user (org.freedesktop.login1(5)), by its LockedHint. The signals Lock
/// and Unlock of a session are requests to lock, not the fact, and play no part.
class LogindLock final : public LockWitness {
 public:
  /// There is a system bus, until busLost().
  void busFound(platform::linux::BusConnection& bus);
  void busLost();

 private:
  void findSession();
  void findSessionOfProcess();
  void follow(const std::string& path);

  platform::linux::BusConnection* bus_ = nullptr;
  std::unique_ptr<platform::linux::BusService> logind_;
  std::string session_;  ///< object path; empty while there is none
  std::unique_ptr<platform::linux::PropertyWatch> watch_;
};

}  // namespace wrixel2::companion
