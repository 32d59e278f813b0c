#pragma once

#include "companion/BusCallSource.h"

namespace wrixel2::companion {

/// The calls of oFono's modems (system bus).
class OfonoCallSource final : public BusCallSource {
 public:
  OfonoCallSource(platform::linux::BusConnection& systemBus, platform::Log& log);

  void hangUp(const std::string& call) override;

 private:
  void askForCalls() override;
  std::optional<RingingCall> ringingCall(const platform::Dictionary& properties) const override;
  void askModem(const std::string& modem);
};

}  // namespace wrixel2::companion
