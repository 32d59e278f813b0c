#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/Log.h"
#include "protocol/BleObjects/YMSCBService.h"

namespace wrixel2::mbmodel {
class MBDataBuilder;
}

namespace wrixel2::mbservices {

class BandPeripheral;
class SessionManager;

/// Writes a payload, front to back.
using PayloadFiller = std::function<void(mbmodel::MBDataBuilder& builder)>;

/// What the band's services have in common.
class BandService : public bleobjects::YMSCBService {
 protected:
  /// The service's short UUID is its number; the module names it in the log.
  BandService(const platform::Platform& platform, std::string_view name,
              const std::weak_ptr<BandPeripheral>& parent, std::int32_t number,
              std::string_view module);

  /// None once the band is gone.
  std::shared_ptr<BandPeripheral> band() const;
  /// None once the band or the session is gone.
  std::shared_ptr<SessionManager> sessionManager() const;
  const platform::Logger& logger() const { return logger_; }

  /// Writes what the filler makes of a fresh builder to the characteristic of that key. With a
  /// completion the band acknowledges the write; without one it does not.
  void writePayload(std::string_view key, const PayloadFiller& work,
                    bleobjects::ErrorCallback block);

 private:
  platform::Logger logger_;
};

}  // namespace wrixel2::mbservices
