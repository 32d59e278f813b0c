// Values into a bus message and out of it again. The message is never sent: the connection leads to
// nobody.

#include "platform/linux/BusValues.h"

#include <algorithm>
#include <cmath>

#include <sys/socket.h>

#include "fuzz/Check.h"
#include "fuzz/Input.h"
#include "platform/linux/BusMessage.h"
#include "platform/linux/BusText.h"

namespace wrixel2::fuzz {
namespace {

using platform::Array;
using platform::Bytes;
using platform::Dictionary;
using platform::Value;
using platform::linux::BusMessage;

sd_bus* connection() {
  static sd_bus* const bus = [] {
    int ends[2];
    sd_bus* made = nullptr;
    const bool isMade =
        socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0 &&
        sd_bus_new(&made) >= 0 && sd_bus_set_fd(made, ends[0], ends[0]) >= 0 &&
        sd_bus_start(made) >= 0;
    check(isMade, "a connection to nobody can be made");
    return made;
  }();
  return bus;
}

BusMessage newMessage() {
  sd_bus_message* message = nullptr;
  check(sd_bus_message_new_signal(connection(), &message, "/a", "a.b", "C") >= 0,
        "a message can be made");
  return BusMessage::adopting(message);
}

/// What a value is once it has been a variant on the bus.
struct OnTheBus {
  Value operator()(bool value) const { return value; }
  Value operator()(std::int64_t value) const { return value; }
  Value operator()(double value) const { return value; }
  Value operator()(const std::string& value) const { return platform::linux::busText(value); }
  Value operator()(const Bytes& value) const { return value; }
  Value operator()(platform::Date value) const {
    return std::chrono::floor<std::chrono::seconds>(value).time_since_epoch().count();
  }
  Value operator()(const Array& values) const {
    Array items;
    for (const auto& value : values) {
      items.push_back(std::visit(*this, value.variant()));
    }
    return items;
  }
  Value operator()(const Dictionary& entries) const {
    Dictionary result;
    for (const auto& [key, value] : entries) {
      result.insert_or_assign(platform::linux::busText(key), std::visit(*this, value.variant()));
    }
    return result;
  }
};

bool isNumber(const Value& value) {
  const auto* real = std::get_if<double>(&value.variant());
  const auto* array = value.array();
  const auto* entries = value.dictionary();
  return (real == nullptr || !std::isnan(*real)) &&
         (array == nullptr || std::ranges::all_of(*array, isNumber)) &&
         (entries == nullptr ||
          std::ranges::all_of(*entries, [](const auto& entry) { return isNumber(entry.second); }));
}

Array sealedAndRead(const BusMessage& message) {
  check(sd_bus_message_seal(message.get(), 1, 0) >= 0, "what was appended is a whole message");
  const auto values = message.arguments();
  check(static_cast<bool>(values), "what was appended is readable");
  Array bounded;
  check(!message.readBoundedArguments(bounded), "and within bounds too");
  check(!std::ranges::all_of(*values, isNumber) || bounded == *values,
        "what is small is read in full");
  return *values;
}

void variants(Input& input) {
  auto message = newMessage();
  const Value value = input.value(4);
  const auto error = message.append("v", {value});
  check(!error, "every value of this depth fits into a variant");
  const Array read = sealedAndRead(message);
  check(!isNumber(value) || read == Array{std::visit(OnTheBus{}, value.variant())},
        "a value comes back from a variant");
}

/// A signature and values that need not fit it, as a mistaken caller has them.
void signatures(Input& input) {
  constexpr std::string_view kTypes[] = {"y",
                                         "b",
                                         "n",
                                         "q",
                                         "i",
                                         "u",
                                         "x",
                                         "t",
                                         "d",
                                         "s",
                                         "o",
                                         "g",
                                         "v",
                                         "ay",
                                         "as",
                                         "av",
                                         "a{sv}",
                                         "a{qv}",
                                         "a{oa{sa{sv}}}",
                                         "(is)",
                                         "a(yv)",
                                         "aai",
                                         "((b)d)",
                                         "h"};
  auto message = newMessage();
  std::string signature;
  Array values;
  for (std::size_t left = 1 + input.below(3); left > 0; --left) {
    signature += input.below(16) == 0 ? input.text(4) : std::string(input.oneOf(kTypes));
    values.push_back(input.value(2));
  }
  if (const auto error = message.append(signature, values)) {
    check(!error->localizedDescription.empty(), "an error has words");
    return;
  }
  check(sealedAndRead(message).size() == values.size(), "every value is a complete type");
  check(message.signature() == signature, "the message has the signature that was asked for");
}

}  // namespace
}  // namespace wrixel2::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace wrixel2::fuzz;  // NOLINT(google-build-using-namespace)
  Input input(data, size);
  if (input.flag()) {
    variants(input);
  } else {
    signatures(input);
  }
  return 0;
}
