#pragma once

#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::platform::linux {

/// Containers nested more deeply, and messages of more values, are refused in both directions.
inline constexpr int kMaximumBusDepth = 32;
inline constexpr int kMaximumBusValues = 100'000;
/// As much is kept of the texts and data of one message that is read within bounds.
inline constexpr std::size_t kMaximumBoundedBytes = std::size_t{1} << 20;

/// The next argument of a message. What becomes what:
///
/// - integers of every width: integer (`t` above the signed range wraps); `b`: boolean; `d`: real;
/// - `s`, `o`, `g`: text; `ay`: data; a variant: what is in it;
/// - a dictionary: dictionary, with number keys as decimal texts; the last of equal keys counts;
/// - any other array, and a structure: array;
/// - a file descriptor, which no value can carry: -1.
///
/// None at the message's end.
Result<std::optional<Value>> readValue(sd_bus_message* message);

/// All remaining arguments of a message.
Result<Array> readValues(sd_bus_message* message);

/// The same for a message that anybody may have sent: of a text, a key or data no more than
/// kLongestText is kept (see utf8Prefix), and of all together no more than kMaximumBoundedBytes.
/// On an error the values are what stands before it, the last one maybe in part; a text that
/// libsystemd does not take is U+FFFD there.
ErrorOrNone readBoundedValues(sd_bus_message* message, Array& values);

/// Appends the values as the complete types of the signature, one a value. An error names the first
/// value that does not fit: an integer out of the type's range, a text for a number. Texts are made
/// valid UTF-8 (see busText). The message must not be sent after an error.
///
/// As a variant, a boolean is `b`, an integer `i` if it fits and else `x`, a real `d`, a text `s`,
/// data `ay`, a date its Unix seconds as `x`, an array `av`, a dictionary `a{sv}`.
ErrorOrNone appendValues(sd_bus_message* message, std::string_view signature, const Array& values);

/// The error of a failed sd-bus call: the bus error's name and text where there is one, else
/// errno's, behind what was tried.
Error errorFromBus(int result, const sd_bus_error* busError, std::string_view whatFailed);

/// Fills in the bus error that tells a caller of the error. An errno number becomes the standard
/// name that goes with it (EINVAL, ERANGE: InvalidArgs; EOPNOTSUPP: NotSupported; EACCES, EPERM:
/// AccessDenied), any other code Failed.
/// Returns what a handler returns to sd-bus.
int setBusError(sd_bus_error* busError, const Error& error);

}  // namespace wrixel2::platform::linux
