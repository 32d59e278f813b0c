#pragma once

#include "platform/ServiceManager.h"

namespace wrixel2::platform::linux {

/// sd_notify(3). Without a service manager nothing happens.
class SystemdServiceManager final : public ServiceManager {
 public:
  void notifyReady() override;
  void notifyStatus(std::string_view status) override;
};

}  // namespace wrixel2::platform::linux
