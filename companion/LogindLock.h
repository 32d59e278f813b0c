#pragma once

#include <memory>
#include <string>

#include "companion/LockWitness.h"
#include "companion/PropertyWatch.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// logind's session of this user (org.freedesktop.login1(5)), by its LockedHint. The signals Lock
/// and Unlock of a session are requests to lock, not the fact, and play no part.
class LogindLock final : public LockWitness {
 public:
  /// There is a system bus, until busLost().
  void busFound(platform::linux::BusConnection& bus);
  void busLost();

 private:
  void subscribe();
  void findSession();
  void findSessionOfProcess();
  void follow(const std::string& path);

  platform::linux::BusConnection* bus_ = nullptr;
  platform::linux::BusSlot ownerChanges_;
  platform::linux::BusSlot newSessions_;
  platform::linux::BusSlot removedSessions_;
  platform::linux::BusSlot pendingQuestion_;
  std::string session_;  ///< object path; empty while there is none
  std::unique_ptr<PropertyWatch> watch_;
};

}  // namespace wrixel2::companion
