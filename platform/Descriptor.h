#pragma once

#include "platform/UUID.h"

namespace wrixel2::platform {

/// A descriptor of a remote characteristic, as discovery found it.
class Descriptor {
 public:
  virtual ~Descriptor() = default;
  virtual const UUID& uuid() const = 0;
};

}  // namespace wrixel2::platform
