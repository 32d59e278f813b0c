#pragma once

#include <string>

#include "platform/Bytes.h"

namespace wrixel2::bandview {

/// What stands for one of the band's icons on the terminal.
struct AlertIcon {
  std::string glyph;  ///< one column
  std::string name;
};

/// By the bytes that the band was sent: one (an alert level), two (before a text) or three. Bytes
/// that are no icon of the band's are named by their digits.
AlertIcon alertIcon(platform::ByteView bytes);

}  // namespace wrixel2::bandview
