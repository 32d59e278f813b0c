#pragma once

#include <memory>
#include <vector>

#include "companion/LockSource.h"
#include "companion/LockWitness.h"

namespace wrixel2::companion {

/// The lock as the first of several witnesses that knows of it says.
class WitnessedLock final : public LockSource {
 public:
  /// The most trusted one first.
  explicit WitnessedLock(std::vector<std::unique_ptr<LockWitness>> witnesses);

 private:
  void update();

  std::vector<std::unique_ptr<LockWitness>> witnesses_;
};

}  // namespace wrixel2::companion
