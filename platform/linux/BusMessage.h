#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include <systemd/sd-bus.h>

#include "platform/Result.h"
#include "platform/Value.h"
#include "platform/linux/FileDescriptor.h"

namespace wrixel2::platform::linux {

/// A reference to one bus message.
class BusMessage {
 public:
  /// Takes over the reference.
  static BusMessage adopting(sd_bus_message* message) { return BusMessage(message); }
  /// Takes a reference of its own.
  static BusMessage referringTo(sd_bus_message* message) {
    return BusMessage(sd_bus_message_ref(message));
  }

  sd_bus_message* get() const { return message_.get(); }

  bool isMethodCall() const;
  bool isSignal() const;
  bool isError() const;
  /// Header fields; empty where the message has none.
  std::string_view sender() const;
  std::string_view destination() const;
  std::string_view path() const;
  std::string_view interface() const;
  std::string_view member() const;
  std::string_view signature() const;
  /// Whether it is of that interface and name.
  bool is(std::string_view interface, std::string_view member) const;

  /// The number by which its sender tells it from its other messages; a reply names the call's.
  std::uint64_t cookie() const;
  /// Of a reply: the cookie of the call that it answers; 0 else.
  std::uint64_t replyCookie() const;

  /// Of an error reply; empty else.
  std::string_view errorName() const;
  /// "The call failed: name: text" with errno's number for the name; only of an error reply.
  Error error() const;

  /// All arguments from the first on, in the forms of readValue().
  Result<Array> arguments() const;

  /// The same of a message that anybody may have sent; see readBoundedValues().
  ErrorOrNone readBoundedArguments(Array& arguments) const;

  /// A descriptor of the caller's own for the one that is the first argument ('h').
  Result<FileDescriptor> fileDescriptor() const;

  /// See appendValues().
  ErrorOrNone append(std::string_view types, const Array& values);

  /// Whether the bus may start a program that serves the destination. It may unless set.
  void setAutoStart(bool autoStart);
  /// A call is answered unless set.
  void setExpectsReply(bool expectsReply);

  /// Answer this call, at most once; nothing is sent where no reply is expected.
  ErrorOrNone reply(std::string_view types, const Array& values) const;
  void replyError(const Error& error) const;
  void replyError(std::string_view errorName, std::string_view text) const;

 private:
  struct Unref {
    void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
  };
  explicit BusMessage(sd_bus_message* message) : message_(message) {}

  std::unique_ptr<sd_bus_message, Unref> message_;
};

}  // namespace wrixel2::platform::linux
