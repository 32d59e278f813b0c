#pragma once

#include <string>

namespace wrixel2::mbservices {

/// Knows the pairing key that band and phone share.
class KeyProvider {
 public:
  virtual ~KeyProvider() = default;
  /// The pairing key's text, never empty. Asked before each authentication, so that a band paired
  /// anew is served without a restart; may wait for the shell companion (at most two seconds).
  virtual std::string getMiFitAuthId() = 0;
};

}  // namespace wrixel2::mbservices
