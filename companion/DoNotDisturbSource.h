#pragma once

namespace wrixel2::companion {

/// Where the phone says whether its owner wants to be left alone.
class DoNotDisturbSource {
 public:
  virtual ~DoNotDisturbSource() = default;
  virtual bool isActive() const = 0;
};

/// A phone that does not say: its owner can be disturbed.
class NoDoNotDisturbSource final : public DoNotDisturbSource {
 public:
  bool isActive() const override { return false; }
};

}  // namespace wrixel2::companion
