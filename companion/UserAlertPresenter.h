#pragma once

#include <string_view>

namespace wrixel2::companion {

/// Shows the owner what the daemon has to say.
class UserAlertPresenter {
 public:
  virtual ~UserAlertPresenter() = default;
  virtual void present(std::string_view title, std::string_view message) = 0;
};

}  // namespace wrixel2::companion
