#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <systemd/sd-bus.h>

#include "platform/ObjectExporter.h"
#include "platform/linux/BusMessage.h"
#include "platform/linux/BusSlot.h"

namespace wrixel2::platform::linux {

struct BusMethod {
  std::string name;
  std::vector<ExportedArgument> in;
  std::vector<ExportedArgument> out;
  /// Answers the call itself. The arguments have the signature of `in`.
  std::function<void(const BusMessage& call)> handle;
};

/// An interface of an object on the bus, as BusConnection::addInterface() takes it.
struct BusInterface {
  std::string name;
  std::vector<BusMethod> methods;
  std::vector<ExportedProperty> properties;
  std::vector<ExportedSignal> signals;

  const BusMethod* method(std::string_view methodName) const;
};

/// The signatures of the arguments, one after the other.
std::string signatureOf(const std::vector<ExportedArgument>& arguments);

/// Registers the interface with an object path. sd-bus answers introspection, property access,
/// unknown members and wrong signatures.
Result<BusSlot> registerInterface(sd_bus* bus, std::string_view path, BusInterface interface);

}  // namespace wrixel2::platform::linux
