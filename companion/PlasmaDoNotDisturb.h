#pragma once

#include <memory>

#include "companion/DoNotDisturbSource.h"
#include "companion/PropertyWatch.h"

namespace wrixel2::companion {

/// Plasma's notification service, which says whether it holds notifications back.
class PlasmaDoNotDisturb final : public DoNotDisturbSource {
 public:
  /// The bus outlives it.
  explicit PlasmaDoNotDisturb(platform::linux::BusConnection& bus);

 private:
  std::unique_ptr<PropertyWatch> watch_;
};

}  // namespace wrixel2::companion
