#pragma once

#include <string>
#include <utility>
#include <vector>

#include "companion/BandWork.h"
#include "companion/UserAlertPresenter.h"

namespace wrixel2::companion {

struct FakeUserAlerts final : UserAlertPresenter {
  void present(std::string_view title, std::string_view message) override {
    presented.push_back(std::string(title).append(": ").append(message));
  }
  std::vector<std::string> presented;  ///< "title: message"
};

struct FakeBandWork final : BandWork {
  void bandHasWork() override { ++causes; }
  int causes = 0;
};

}  // namespace wrixel2::companion
