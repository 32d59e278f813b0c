#include "companion/AnyDoNotDisturb.h"

#include <algorithm>

namespace wrixel2::companion {

AnyDoNotDisturb::AnyDoNotDisturb(std::vector<std::unique_ptr<DoNotDisturbSource>> sources)
    : sources_(std::move(sources)) {
  for (const auto& source : sources_) {
    source->onChange([this] { update(); });
  }
  update();
}

void AnyDoNotDisturb::update() {
  setActive(std::any_of(sources_.begin(), sources_.end(),
                        [](const auto& source) { return source->isActive(); }));
}

}  // namespace wrixel2::companion
