#pragma once

#include <string>

#include "platform/Bytes.h"

namespace wrixel2::band {

/// The text that the band's screen makes of the bytes it was sent: without NULs, and without a
/// character that was cut at the end. Bytes that are no UTF-8 elsewhere show as U+FFFD, so the
/// result is always valid UTF-8.
std::string displayedText(platform::ByteView bytes);

}  // namespace wrixel2::band
