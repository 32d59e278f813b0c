#include "platform/linux/BusInterface.h"

#include <algorithm>
#include <deque>
#include <utility>

#include <errno.h>

#include "platform/Assertion.h"
#include "platform/linux/BusValues.h"

namespace wrixel2::platform::linux {
namespace {

// An interface with the table that sd-bus reads it from. Lives as long as its slot.
class RegisteredInterface {
 public:
  explicit RegisteredInterface(BusInterface interface) : interface_(std::move(interface)) {
    auto& start = addEntry(_SD_BUS_VTABLE_START, 0).x.start;
    start.element_size = sizeof(sd_bus_vtable);
    start.features = _SD_BUS_VTABLE_PARAM_NAMES;
    start.vtable_format_reference = &sd_bus_object_vtable_format;
    for (const auto& method : interface_.methods) {
      auto& entry = addEntry(_SD_BUS_VTABLE_METHOD, SD_BUS_VTABLE_UNPRIVILEGED).x.method;
      entry.member = method.name.c_str();
      entry.signature = keep(signatureOf(method.in));
      entry.result = keep(signatureOf(method.out));
      entry.handler = &RegisteredInterface::onCall;
      entry.names = keep(namesOf(method.in) + namesOf(method.out));
    }
    for (const auto& property : interface_.properties) {
      std::uint64_t flags = 0;
      if (property.isAnnounced) {
        flags |= SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE;
      }
      std::uint8_t type = _SD_BUS_VTABLE_PROPERTY;
      if (property.set) {
        flags |= SD_BUS_VTABLE_UNPRIVILEGED;
        type = _SD_BUS_VTABLE_WRITABLE_PROPERTY;
      }
      auto& entry = addEntry(type, flags).x.property;
      entry.member = property.name.c_str();
      entry.signature = property.signature.c_str();
      entry.get = &RegisteredInterface::onGet;
      entry.set = property.set ? &RegisteredInterface::onSet : nullptr;
    }
    for (const auto& signal : interface_.signals) {
      auto& entry = addEntry(_SD_BUS_VTABLE_SIGNAL, 0).x.signal;
      entry.member = signal.name.c_str();
      entry.signature = keep(signatureOf(signal.arguments));
      entry.names = keep(namesOf(signal.arguments));
    }
    addEntry(_SD_BUS_VTABLE_END, 0);
  }

  const std::string& name() const { return interface_.name; }
  const sd_bus_vtable* table() const { return table_.data(); }

 private:
  sd_bus_vtable& addEntry(std::uint8_t type, std::uint64_t flags) {
    auto& entry = table_.emplace_back();  // zeroed, as sd-bus wants the unused parts
    entry.type = type;
    entry.flags = flags & ((std::uint64_t{1} << 56) - 1);
    return entry;
  }

  const char* keep(std::string text) { return texts_.emplace_back(std::move(text)).c_str(); }

  // Each followed by a NUL.
  static std::string namesOf(const std::vector<ExportedArgument>& arguments) {
    std::string names;
    for (const auto& argument : arguments) {
      names += argument.name;
      names += '\0';
    }
    return names;
  }

  const ExportedProperty* property(std::string_view name) const {
    const auto found =
        std::find_if(interface_.properties.begin(), interface_.properties.end(),
                     [&](const ExportedProperty& candidate) { return candidate.name == name; });
    return found == interface_.properties.end() ? nullptr : &*found;
  }

  static int onCall(sd_bus_message* message, void* userdata, sd_bus_error* /*error*/) {
    const auto call = BusMessage::referringTo(message);
    const auto* method =
        static_cast<RegisteredInterface*>(userdata)->interface_.method(call.member());
    if (method == nullptr) {
      return 0;
    }
    method->handle(call);
    return 1;
  }

  static int onGet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                   const char* name, sd_bus_message* reply, void* userdata,
                   sd_bus_error* /*error*/) {
    const auto* property = static_cast<RegisteredInterface*>(userdata)->property(name);
    if (property == nullptr) {
      return -ENOENT;
    }
    if (const auto error = appendValues(reply, property->signature, {property->get()})) {
      assertionFailure("Property " + property->name + ": " + error->localizedDescription);
    }
    return 1;
  }

  static int onSet(sd_bus* /*bus*/, const char* /*path*/, const char* /*interface*/,
                   const char* name, sd_bus_message* message, void* userdata, sd_bus_error* error) {
    const auto* property = static_cast<RegisteredInterface*>(userdata)->property(name);
    const auto value = readValue(message);
    if (property == nullptr || !value || !*value) {
      return -EINVAL;
    }
    const auto refusal = property->set(**value);
    return refusal ? setBusError(error, *refusal) : 1;
  }

  BusInterface interface_;
  std::vector<sd_bus_vtable> table_;
  std::deque<std::string> texts_;
};

}  // namespace

const BusMethod* BusInterface::method(std::string_view methodName) const {
  const auto found = std::find_if(methods.begin(), methods.end(), [&](const BusMethod& candidate) {
    return candidate.name == methodName;
  });
  return found == methods.end() ? nullptr : &*found;
}

std::string signatureOf(const std::vector<ExportedArgument>& arguments) {
  std::string signature;
  for (const auto& argument : arguments) {
    signature += argument.signature;
  }
  return signature;
}

Result<BusSlot> registerInterface(sd_bus* bus, std::string_view path, BusInterface interface) {
  auto registered = std::make_unique<RegisteredInterface>(std::move(interface));
  sd_bus_slot* slot = nullptr;
  const int result =
      sd_bus_add_object_vtable(bus, &slot, std::string(path).c_str(), registered->name().c_str(),
                               registered->table(), registered.get());
  if (result < 0) {
    return errorFromErrno(-result, "The interface " + registered->name() +
                                       " cannot be exported at " + std::string(path));
  }
  // The table is read until the slot is gone for good, which is later than its owner's release when
  // that happens inside one of the interface's own calls.
  registered.release();
  sd_bus_slot_set_destroy_callback(
      slot, [](void* userdata) { delete static_cast<RegisteredInterface*>(userdata); });
  return BusSlot(slot);
}

}  // namespace wrixel2::platform::linux
