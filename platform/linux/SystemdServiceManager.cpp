#include "platform/linux/SystemdServiceManager.h"

#include <algorithm>
#include <string>

#include <systemd/sd-daemon.h>

namespace wrixel2::platform::linux {

void SystemdServiceManager::notifyReady() { sd_notify(0, "READY=1"); }

void SystemdServiceManager::notifyStatus(std::string_view status) {
  std::string message = "STATUS=" + std::string(status);
  // A line break would begin another assignment.
  std::replace(message.begin(), message.end(), '\n', ' ');
  sd_notify(0, message.c_str());
}

}  // namespace wrixel2::platform::linux
