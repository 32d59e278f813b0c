#pragma once

#include <memory>
#include <vector>

#include "companion/DoNotDisturbSource.h"

namespace wrixel2::companion {

/// Several places where the phone may say it: one that does is enough.
class AnyDoNotDisturb final : public DoNotDisturbSource {
 public:
  explicit AnyDoNotDisturb(std::vector<std::unique_ptr<DoNotDisturbSource>> sources);

 private:
  void update();

  std::vector<std::unique_ptr<DoNotDisturbSource>> sources_;
};

}  // namespace wrixel2::companion
