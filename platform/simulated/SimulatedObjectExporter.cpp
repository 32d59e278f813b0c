#include "platform/simulated/SimulatedObjectExporter.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include <fmt/format.h>

#include "platform/Assertion.h"

namespace wrixel2::platform::simulated {

namespace {

/// The member of that name, or nothing; the lists are short.
template <typename List>
auto findNamed(List& list, std::string_view name) -> decltype(&*list.begin()) {
  const auto entry =
      std::ranges::find_if(list, [name](const auto& member) { return member.name == name; });
  return entry == list.end() ? nullptr : &*entry;
}

Error noSuchMember(std::string_view path, std::string_view name) {
  return {ENOENT, fmt::format("{} has no member \"{}\"", path, name)};
}

}  // namespace

class SimulatedObjectExporter::Object final : public ExportedObject {
 public:
  Object(SimulatedObjectExporter& exporter, std::string_view busName, std::string_view path)
      : exporter_(exporter), busName_(busName), path_(path) {}
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;
  ~Object() override {
    exporter_.interfaces_.erase(path_);
    exporter_.names_.erase(busName_);
  }

  void emitSignal(std::string_view name, const Array& arguments) override {
    const auto* const signal = findNamed(exporter_.interfaces_.at(path_).signals, name);
    if (signal == nullptr || signal->arguments.size() != arguments.size()) {
      assertionFailure("An object emitted a signal that its interface does not declare");
    }
    exporter_.signals_.push_back({path_, std::string(name), arguments});
  }

  void propertyChanged(std::string_view name) override {
    const auto value = exporter_.property(path_, name);
    if (!value) {
      assertionFailure("An object announced a property that its interface does not declare");
    }
    exporter_.changes_.push_back({path_, std::string(name), *value});
  }

 private:
  SimulatedObjectExporter& exporter_;
  std::string busName_;
  std::string path_;
};

Result<std::unique_ptr<ExportedObject>> SimulatedObjectExporter::exportObject(
    std::string_view busName, std::string_view path, ExportedInterface interface) {
  if (!busName.empty() && names_.contains(busName)) {
    return Error{EEXIST, fmt::format("Another program has the bus name {}", busName)};
  }
  if (!interfaces_.emplace(path, std::move(interface)).second) {
    return Error{EEXIST, fmt::format("There is an object at {} already", path)};
  }
  names_.emplace(busName);
  return std::unique_ptr<ExportedObject>(std::make_unique<Object>(*this, busName, path));
}

const ExportedInterface* SimulatedObjectExporter::interfaceAtPath(std::string_view path) const {
  const auto entry = interfaces_.find(path);
  return entry == interfaces_.end() ? nullptr : &entry->second;
}

std::optional<Value> SimulatedObjectExporter::property(std::string_view path,
                                                       std::string_view name) const {
  const ExportedInterface* const interface = interfaceAtPath(path);
  const auto* const property =
      interface == nullptr ? nullptr : findNamed(interface->properties, name);
  return property == nullptr ? std::nullopt : std::optional<Value>(property->get());
}

ErrorOrNone SimulatedObjectExporter::setProperty(std::string_view path, std::string_view name,
                                                 const Value& value) {
  const ExportedInterface* const interface = interfaceAtPath(path);
  const auto* const property =
      interface == nullptr ? nullptr : findNamed(interface->properties, name);
  if (property == nullptr) {
    return noSuchMember(path, name);
  }
  if (!property->set) {
    return Error{EROFS, fmt::format("The property \"{}\" is read-only", name)};
  }
  return property->set(value);
}

ErrorOrNone SimulatedObjectExporter::call(std::string_view path, std::string_view method,
                                          const Array& arguments) {
  const ExportedInterface* const interface = interfaceAtPath(path);
  const auto* const found = interface == nullptr ? nullptr : findNamed(interface->methods, method);
  if (found == nullptr) {
    return noSuchMember(path, method);
  }
  if (found->arguments.size() != arguments.size()) {
    return Error{EINVAL, fmt::format("\"{}\" takes {} arguments", method, found->arguments.size())};
  }
  return found->call(arguments);
}

std::vector<SimulatedObjectExporter::EmittedSignal> SimulatedObjectExporter::emittedSignals(
    std::string_view name) const {
  std::vector<EmittedSignal> signals;
  std::ranges::copy_if(signals_, std::back_inserter(signals),
                       [name](const EmittedSignal& signal) { return signal.name == name; });
  return signals;
}

void SimulatedObjectExporter::clearRecords() {
  signals_.clear();
  changes_.clear();
}

}  // namespace wrixel2::platform::simulated
