#include "platform/linux/SdBusObjectExporter.h"

#include <algorithm>
#include <utility>

#include <errno.h>

#include "platform/Assertion.h"
#include "platform/linux/BusConnection.h"

namespace wrixel2::platform::linux {
namespace {

class SdBusExportedObject final : public ExportedObject {
 public:
  SdBusExportedObject(BusConnection& connection, std::string_view busName, std::string_view path,
                      const ExportedInterface& interface)
      : connection_(connection),
        busName_(busName),
        path_(path),
        interfaceName_(interface.name),
        signals_(interface.signals) {}

  ~SdBusExportedObject() override {
    if (ownsName_) {
      connection_.releaseName(busName_);
    }
  }

  ErrorOrNone start(BusInterface interface) {
    auto slot = connection_.addInterface(path_, std::move(interface));
    if (!slot) {
      return slot.error();
    }
    slot_ = std::move(*slot);
    if (!busName_.empty()) {
      // After the object is there: whoever waits for the name finds it.
      if (auto error = connection_.requestName(busName_)) {
        return error;
      }
      ownsName_ = true;
    }
    return std::nullopt;
  }

  void emitSignal(std::string_view name, const Array& arguments) override {
    const auto signal =
        std::find_if(signals_.begin(), signals_.end(),
                     [&](const ExportedSignal& candidate) { return candidate.name == name; });
    if (signal == signals_.end()) {
      assertionFailure("Unknown signal " + std::string(name));
    }
    // What can fail apart from the values is the bus itself, and its end is told elsewhere.
    const auto error = connection_.emitSignal(path_, interfaceName_, name,
                                              signatureOf(signal->arguments), arguments);
    if (error && (error->code == EINVAL || error->code == ERANGE)) {
      assertionFailure("Signal " + std::string(name) + ": " + error->localizedDescription);
    }
  }

  void propertyChanged(std::string_view name) override {
    sd_bus_emit_properties_changed(connection_.get(), path_.c_str(), interfaceName_.c_str(),
                                   std::string(name).c_str(), nullptr);
  }

 private:
  BusConnection& connection_;
  std::string busName_;
  std::string path_;
  std::string interfaceName_;
  std::vector<ExportedSignal> signals_;
  bool ownsName_ = false;
  BusSlot slot_;
};

BusMethod methodOnBus(ExportedMethod method) {
  auto call = std::move(method.call);
  return {
      std::move(method.name), std::move(method.arguments), {}, [call](const BusMessage& message) {
        const auto arguments = message.arguments();
        const auto error = arguments ? call(*arguments) : arguments.error();
        if (error) {
          message.replyError(*error);
        } else {
          message.reply("", {});
        }
      }};
}

}  // namespace

Result<std::unique_ptr<ExportedObject>> SdBusObjectExporter::exportObject(
    std::string_view busName, std::string_view path, ExportedInterface interface) {
  auto object = std::make_unique<SdBusExportedObject>(connection_, busName, path, interface);
  BusInterface onBus;
  onBus.name = std::move(interface.name);
  for (auto& method : interface.methods) {
    onBus.methods.push_back(methodOnBus(std::move(method)));
  }
  onBus.properties = std::move(interface.properties);
  onBus.signals = std::move(interface.signals);
  if (auto error = object->start(std::move(onBus))) {
    return *error;
  }
  return std::unique_ptr<ExportedObject>(std::move(object));
}

}  // namespace wrixel2::platform::linux
