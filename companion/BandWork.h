#pragma once

namespace wrixel2::companion {

/// Is told when there is something to do for the band.
class BandWork {
 public:
  virtual ~BandWork() = default;
  virtual void bandHasWork() = 0;
};

}  // namespace wrixel2::companion
