#pragma once

namespace wrixel2::platform {

/// Destroying it ends the observation: the callback is not called any more, not even for what was
/// already on its way.
class Observation {
 public:
  virtual ~Observation() = default;
};

}  // namespace wrixel2::platform
