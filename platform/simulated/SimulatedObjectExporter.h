#pragma once

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "platform/ObjectExporter.h"

namespace wrixel2::platform::simulated {

/// Keeps exported objects inside the process; a test plays the programs that use them.
class SimulatedObjectExporter final : public ObjectExporter {
 public:
  struct EmittedSignal {
    std::string path;
    std::string name;
    Array arguments;
  };
  struct PropertyChange {
    std::string path;
    std::string name;
    Value value;
  };

  Result<std::unique_ptr<ExportedObject>> exportObject(std::string_view busName,
                                                       std::string_view path,
                                                       ExportedInterface interface) override;

  bool isExported(std::string_view path) const { return interfaces_.contains(path); }
  const ExportedInterface* interfaceAtPath(std::string_view path) const;
  bool isNameTaken(std::string_view busName) const { return names_.contains(busName); }

  /// None when there is no such property.
  std::optional<Value> property(std::string_view path, std::string_view name) const;
  /// An error as well when there is no such property, or it is read-only.
  ErrorOrNone setProperty(std::string_view path, std::string_view name, const Value& value);
  /// An error as well when there is no such method, or it takes another number of arguments.
  ErrorOrNone call(std::string_view path, std::string_view method, const Array& arguments = {});

  const std::vector<EmittedSignal>& emittedSignals() const { return signals_; }
  std::vector<EmittedSignal> emittedSignals(std::string_view name) const;
  const std::vector<PropertyChange>& propertyChanges() const { return changes_; }
  void clearRecords();

  /// Another program has the bus name: exports under it fail.
  void setTaken(std::string_view busName) { names_.emplace(busName); }

 private:
  class Object;

  std::map<std::string, ExportedInterface, std::less<>> interfaces_;
  std::set<std::string, std::less<>> names_;
  std::vector<EmittedSignal> signals_;
  std::vector<PropertyChange> changes_;
};

}  // namespace wrixel2::platform::simulated
