#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "companion/LockWitness.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::companion {

/// The program that covers the screen, by the interface of screen savers (GetActive and
/// ActiveChanged): on a phone, active is locked. It is followed when it comes and goes, and never
/// started.
class ScreenSaverLock final : public LockWitness {
 public:
  /// The service's name is that of its interface. Its object is at the first of the paths that
  /// answers. The bus outlives it.
  ScreenSaverLock(platform::linux::BusConnection& bus, std::string service,
                  std::vector<std::string> paths);

 private:
  void subscribe();
  void ask(std::size_t pathIndex);
  void answered(const platform::linux::BusMessage& reply, std::size_t pathIndex);
  void ownerChanged(const std::string& owner);
  void activeChanged(const platform::linux::BusMessage& message);

  platform::linux::BusConnection& bus_;
  std::string service_;
  std::vector<std::string> paths_;
  std::string owner_;  ///< unique name; empty while nobody has answered
  platform::linux::BusSlot ownerChanges_;
  platform::linux::BusSlot activeChanges_;
  platform::linux::BusSlot pendingQuestion_;
};

}  // namespace wrixel2::companion
