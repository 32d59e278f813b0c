#pragma once

#include <optional>
#include <string>

namespace wrixel2::platform {

/// Codes of the Bluetooth central that the session's rules tell apart; others pass through as they
/// are. 6 and 7 are the ones a band's link ends with.
namespace bluetooth_error {
inline constexpr long unknown = 0;
inline constexpr long invalidHandle = 2;
inline constexpr long notConnected = 3;
inline constexpr long connectionTimeout = 6;
inline constexpr long peripheralDisconnected = 7;
inline constexpr long connectionFailed = 10;
}  // namespace bluetooth_error

/// What went wrong: a number that code can test, and a sentence for the log.
struct Error {
  long code = 0;
  std::string localizedDescription;

  friend bool operator==(const Error&, const Error&) = default;
};

/// None on success.
using ErrorOrNone = std::optional<Error>;

/// "the sentence (code N)".
std::string description(const Error& error);
/// "(null)" for none, as every absent object reads in the log.
std::string description(const ErrorOrNone& error);
/// The text itself, "(null)" for none.
std::string description(const std::optional<std::string>& text);

/// The error of a failed system call: errno's number and text behind what was tried.
Error errorFromErrno(int number, const std::string& whatFailed);

}  // namespace wrixel2::platform
