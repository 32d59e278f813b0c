#pragma once

#include <memory>
#include <vector>

#include "platform/Characteristic.h"
#include "platform/UUID.h"

namespace wrixel2::platform {

/// A service of a remote device, as discovery found it.
class Service {
 public:
  virtual ~Service() = default;
  virtual const UUID& uuid() const = 0;
  /// Empty before its characteristics were discovered.
  virtual std::vector<std::shared_ptr<Characteristic>> characteristics() const = 0;
};

}  // namespace wrixel2::platform
