#pragma once

#include "platform/ObjectExporter.h"

namespace wrixel2::platform::linux {

class BusConnection;

/// Objects on a bus connection, which outlives them.
class SdBusObjectExporter final : public ObjectExporter {
 public:
  explicit SdBusObjectExporter(BusConnection& connection) : connection_(connection) {}

  Result<std::unique_ptr<ExportedObject>> exportObject(std::string_view busName,
                                                       std::string_view path,
                                                       ExportedInterface interface) override;

 private:
  BusConnection& connection_;
};

}  // namespace wrixel2::platform::linux
