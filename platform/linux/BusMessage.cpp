#include "platform/linux/BusMessage.h"

#include <errno.h>
#include <fcntl.h>

#include "platform/linux/BusValues.h"

namespace wrixel2::platform::linux {
namespace {

std::string_view orEmpty(const char* text) { return text == nullptr ? "" : text; }

}  // namespace

bool BusMessage::isMethodCall() const {
  return sd_bus_message_is_method_call(get(), nullptr, nullptr) > 0;
}

bool BusMessage::isSignal() const { return sd_bus_message_is_signal(get(), nullptr, nullptr) > 0; }

bool BusMessage::isError() const { return sd_bus_message_is_method_error(get(), nullptr) > 0; }

std::string_view BusMessage::sender() const { return orEmpty(sd_bus_message_get_sender(get())); }

std::string_view BusMessage::destination() const {
  return orEmpty(sd_bus_message_get_destination(get()));
}

std::string_view BusMessage::path() const { return orEmpty(sd_bus_message_get_path(get())); }

std::string_view BusMessage::interface() const {
  return orEmpty(sd_bus_message_get_interface(get()));
}

std::string_view BusMessage::member() const { return orEmpty(sd_bus_message_get_member(get())); }

std::string_view BusMessage::signature() const {
  return orEmpty(sd_bus_message_get_signature(get(), 1));
}

bool BusMessage::is(std::string_view interfaceName, std::string_view memberName) const {
  return interface() == interfaceName && member() == memberName;
}

std::uint64_t BusMessage::cookie() const {
  std::uint64_t cookie = 0;
  return sd_bus_message_get_cookie(get(), &cookie) < 0 ? 0 : cookie;
}

std::uint64_t BusMessage::replyCookie() const {
  std::uint64_t cookie = 0;
  return sd_bus_message_get_reply_cookie(get(), &cookie) < 0 ? 0 : cookie;
}

std::string_view BusMessage::errorName() const {
  const auto* error = sd_bus_message_get_error(get());
  return error == nullptr ? "" : orEmpty(error->name);
}

Error BusMessage::error() const {
  return errorFromBus(-sd_bus_message_get_errno(get()), sd_bus_message_get_error(get()),
                      "The call failed");
}

Result<Array> BusMessage::arguments() const {
  if (const int result = sd_bus_message_rewind(get(), 1); result < 0) {
    return errorFromErrno(-result, "The message cannot be read");
  }
  return readValues(get());
}

ErrorOrNone BusMessage::readBoundedArguments(Array& arguments) const {
  if (const int result = sd_bus_message_rewind(get(), 1); result < 0) {
    return errorFromErrno(-result, "The message cannot be read");
  }
  return readBoundedValues(get(), arguments);
}

Result<FileDescriptor> BusMessage::fileDescriptor() const {
  int number = -1;
  int result = sd_bus_message_rewind(get(), 1);
  if (result >= 0) {
    result = sd_bus_message_read_basic(get(), SD_BUS_TYPE_UNIX_FD, &number);
  }
  if (result <= 0) {
    return errorFromErrno(result == 0 ? EBADMSG : -result, "The message has no file descriptor");
  }
  // The message closes its own.
  FileDescriptor own(::fcntl(number, F_DUPFD_CLOEXEC, 0));
  if (!own) {
    return errorFromErrno(errno, "The file descriptor cannot be kept");
  }
  return own;
}

ErrorOrNone BusMessage::append(std::string_view types, const Array& values) {
  return appendValues(get(), types, values);
}

void BusMessage::setAutoStart(bool autoStart) {
  sd_bus_message_set_auto_start(get(), static_cast<int>(autoStart));
}

void BusMessage::setExpectsReply(bool expectsReply) {
  sd_bus_message_set_expect_reply(get(), static_cast<int>(expectsReply));
}

ErrorOrNone BusMessage::reply(std::string_view types, const Array& values) const {
  if (sd_bus_message_get_expect_reply(get()) == 0) {
    return std::nullopt;  // sd-bus would make the answer, and then not send it
  }
  sd_bus_message* raw = nullptr;
  int result = sd_bus_message_new_method_return(get(), &raw);
  if (result >= 0) {
    auto answer = BusMessage::adopting(raw);
    if (auto error = answer.append(types, values)) {
      return error;
    }
    result = sd_bus_send(nullptr, answer.get(), nullptr);
  }
  return result < 0 ? ErrorOrNone(errorFromErrno(-result, "No reply can be sent")) : std::nullopt;
}

void BusMessage::replyError(const Error& error) const {
  sd_bus_error busError{};
  setBusError(&busError, error);
  sd_bus_reply_method_error(get(), &busError);
  sd_bus_error_free(&busError);
}

void BusMessage::replyError(std::string_view name, std::string_view text) const {
  sd_bus_error busError{};
  sd_bus_error_set(&busError, std::string(name).c_str(), std::string(text).c_str());
  sd_bus_reply_method_error(get(), &busError);
  sd_bus_error_free(&busError);
}

}  // namespace wrixel2::platform::linux
