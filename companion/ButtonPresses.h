#pragma once

namespace wrixel2::companion {

/// Is told of every press of the band's button.
class ButtonPresses {
 public:
  virtual ~ButtonPresses() = default;
  virtual void buttonPressed() = 0;
};

}  // namespace wrixel2::companion
