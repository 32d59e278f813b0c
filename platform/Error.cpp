#include "platform/Error.h"

#include <system_error>

#include <fmt/format.h>

namespace wrixel2::platform {
namespace {

constexpr const char* kMissingObject = "(null)";

}  // namespace

std::string description(const Error& error) {
  return fmt::format("{} (code {})", error.localizedDescription, error.code);
}

std::string description(const ErrorOrNone& error) {
  return error ? description(*error) : kMissingObject;
}

std::string description(const std::optional<std::string>& text) {
  return text.value_or(kMissingObject);
}

Error errorFromErrno(int number, const std::string& whatFailed) {
  return {number, fmt::format("{}: {}", whatFailed, std::generic_category().message(number))};
}

}  // namespace wrixel2::platform
