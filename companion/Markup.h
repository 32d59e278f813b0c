#pragma once

#include <string>
#include <string_view>

namespace wrixel2::companion {

/// The plain text of a notification body: tags are removed (a line break stays one) and character
/// references decoded. What only looks like markup, as in "1 < 2 & 3", stays as it is.
///
/// The markup is that of the Desktop Notifications Specification 1.2, "Markup", read leniently.
std::string textWithoutMarkup(std::string_view markup);

}  // namespace wrixel2::companion
