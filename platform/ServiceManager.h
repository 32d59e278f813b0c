#pragma once

#include <string_view>

namespace wrixel2::platform {

/// The program that started this one and watches over it.
class ServiceManager {
 public:
  virtual ~ServiceManager() = default;
  /// The service can be used from now on.
  virtual void notifyReady() = 0;
  /// One line on what the service is doing, for people who ask the manager.
  virtual void notifyStatus(std::string_view status) = 0;
};

}  // namespace wrixel2::platform
