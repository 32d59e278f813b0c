#pragma once

namespace wrixel2::companion {

/// Whatever plays music and films on the phone.
class MediaControl {
 public:
  virtual ~MediaControl() = default;
  virtual void playPause() = 0;
};

}  // namespace wrixel2::companion
