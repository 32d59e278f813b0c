#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Result.h"
#include "platform/Value.h"

namespace wrixel2::platform {

/// One property of an exported object. Signatures are those of D-Bus ("s", "y", "ay", "b", "x").
struct ExportedProperty {
  std::string name;
  std::string signature;
  std::function<Value()> get;
  /// None makes it read-only. An error refuses the value and reaches the writer.
  std::function<ErrorOrNone(const Value&)> set = {};
  /// Whether propertyChanged() is called for it; others learn so by introspection.
  bool isAnnounced = true;
};

struct ExportedArgument {
  std::string name;
  std::string signature;
};

struct ExportedMethod {
  std::string name;
  std::vector<ExportedArgument> arguments;
  std::function<ErrorOrNone(const Array& arguments)> call;
};

struct ExportedSignal {
  std::string name;
  std::vector<ExportedArgument> arguments;
};

/// An interface that other programs of the session can use.
struct ExportedInterface {
  std::string name;
  std::vector<ExportedProperty> properties;
  std::vector<ExportedMethod> methods;
  std::vector<ExportedSignal> signals;
};

/// Exported until it is destroyed.
class ExportedObject {
 public:
  virtual ~ExportedObject() = default;
  /// Values that do not fit the declared signature are a programming error.
  virtual void emitSignal(std::string_view name, const Array& arguments) = 0;
  /// Announces the property's present value.
  virtual void propertyChanged(std::string_view name) = 0;
};

/// Puts objects on the session bus, introspectable.
class ObjectExporter {
 public:
  virtual ~ObjectExporter() = default;
  /// Takes the bus name, unless it is empty (then the object is found below a name that the process
  /// has anyway). Fails when another program has the name.
  virtual Result<std::unique_ptr<ExportedObject>> exportObject(std::string_view busName,
                                                               std::string_view path,
                                                               ExportedInterface interface) = 0;
};

}  // namespace wrixel2::platform
