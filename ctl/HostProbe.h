#pragma once

#include <string>

#include "ctl/HostFacts.h"
#include "platform/linux/LinuxRunLoop.h"

namespace wrixel2::ctl {

/// Finds out about the machine: asks the kernel, the Bluetooth service and the service manager,
/// each for at most a few seconds, and changes nothing.
class HostProbe {
 public:
  explicit HostProbe(platform::linux::LinuxRunLoop& loop) : loop_(loop) {}

  HostFacts facts() const;

 private:
  void askSystemBus(HostFacts& facts) const;
  void askSessionBus(HostFacts& facts) const;

  platform::linux::LinuxRunLoop& loop_;
};

}  // namespace wrixel2::ctl
