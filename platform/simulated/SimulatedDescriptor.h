#pragma once

#include "platform/Descriptor.h"

namespace wrixel2::platform::simulated {

class SimulatedDescriptor final : public Descriptor {
 public:
  explicit SimulatedDescriptor(const UUID& uuid) : uuid_(uuid) {}
  const UUID& uuid() const override { return uuid_; }

 private:
  UUID uuid_;
};

}  // namespace wrixel2::platform::simulated
