#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "companion/LockWitness.h"
#include "platform/linux/BusService.h"

namespace wrixel2::companion {

/// The program that covers the screen, by the interface of screen savers (GetActive and
/// ActiveChanged): on a phone, active is locked. It is followed when it comes and goes, and never
/// started.
class ScreenSaverLock final : public LockWitness {
 public:
  /// The service's name is that of its interface. Its object is at the first of the paths that
  /// answers. The bus outlives it.
  ScreenSaverLock(platform::linux::BusConnection& bus, const std::string& service,
                  std::vector<std::string> paths);

 private:
  void ask(std::size_t pathIndex);

  std::string interface_;
  std::vector<std::string> paths_;
  platform::linux::BusService service_;
};

}  // namespace wrixel2::companion
