#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "platform/ServiceManager.h"

namespace wrixel2::platform::simulated {

/// Keeps what the service manager was told.
class SimulatedServiceManager final : public ServiceManager {
 public:
  void notifyReady() override { isReady_ = true; }
  void notifyStatus(std::string_view status) override { statuses_.emplace_back(status); }

  bool isReady() const { return isReady_; }
  const std::vector<std::string>& statuses() const { return statuses_; }

 private:
  bool isReady_ = false;
  std::vector<std::string> statuses_;
};

}  // namespace wrixel2::platform::simulated
