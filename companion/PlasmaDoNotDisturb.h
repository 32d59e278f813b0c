#pragma once

#include "companion/DoNotDisturbSource.h"
#include "platform/linux/PropertyWatch.h"

namespace wrixel2::companion {

/// Plasma's notification service, which says whether it holds notifications back.
class PlasmaDoNotDisturb final : public DoNotDisturbSource {
 public:
  /// The bus outlives it.
  explicit PlasmaDoNotDisturb(platform::linux::BusConnection& bus);

 private:
  platform::linux::PropertyWatch watch_;
};

}  // namespace wrixel2::companion
