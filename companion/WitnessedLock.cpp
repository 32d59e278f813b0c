#include "companion/WitnessedLock.h"

#include <algorithm>

namespace wrixel2::companion {

WitnessedLock::WitnessedLock(std::vector<std::unique_ptr<LockWitness>> witnesses)
    : witnesses_(std::move(witnesses)) {
  for (const auto& witness : witnesses_) {
    witness->onChange([this] { update(); });
  }
  update();
}

void WitnessedLock::update() {
  const auto first = std::find_if(witnesses_.begin(), witnesses_.end(), [](const auto& witness) {
    return witness->isLocked().has_value();
  });
  setLocked(first != witnesses_.end() && *(*first)->isLocked());
}

}  // namespace wrixel2::companion
