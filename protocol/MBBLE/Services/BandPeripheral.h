#pragma once

#include <memory>
#include <optional>

#include "protocol/BleObjects/YMSCBPeripheral.h"

namespace wrixel2::mbmodel {
class MBActivityModel;
}

namespace wrixel2::mbservices {

class SessionManager;

/// The band as its services see it.
class BandPeripheral : public bleobjects::YMSCBPeripheral {
 public:
  /// The band still runs its link by other parameters than alerts need.
  virtual bool shouldUpdateLEParams() const = 0;
  virtual void setShouldUpdateLEParams(bool should) = 0;
  virtual void setActivity(std::optional<mbmodel::MBActivityModel> activity) = 0;
  /// None once the session is gone.
  virtual std::shared_ptr<SessionManager> sessionManager() const = 0;

 protected:
  using YMSCBPeripheral::YMSCBPeripheral;
};

}  // namespace wrixel2::mbservices
