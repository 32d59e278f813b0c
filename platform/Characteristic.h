#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "platform/Bytes.h"
#include "platform/Descriptor.h"
#include "platform/UUID.h"

namespace wrixel2::platform {

class Service;

/// A characteristic of a remote service, as discovery found it.
class Characteristic {
 public:
  virtual ~Characteristic() = default;
  virtual const UUID& uuid() const = 0;
  /// None once the service is gone.
  virtual std::shared_ptr<Service> service() const = 0;
  /// The last value read or notified; none before the first.
  virtual std::optional<Bytes> value() const = 0;
  virtual bool isNotifying() const = 0;
  virtual std::vector<std::shared_ptr<Descriptor>> descriptors() const = 0;
};

}  // namespace wrixel2::platform
