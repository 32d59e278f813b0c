#pragma once

#include <cstdint>
#include <optional>

#include "platform/Bytes.h"

namespace wrixel2::mbservices {

/// What a band said of the pairing key.
enum class AuthVerdict : std::uint8_t { none, accepted, refused };

/// What authentication remembers from one link, and one band object, to the next. One band is
/// served at a time, so the session manager owns the one and every MBAuthService refers to it.
struct AuthState {
  /// Refusals since the last success; only a success clears it.
  int failureCount = 0;
  /// The random-number message answered last, so that a repeated one is answered once.
  std::optional<platform::Bytes> lastResponse;
  AuthVerdict verdict = AuthVerdict::none;
};

}  // namespace wrixel2::mbservices
