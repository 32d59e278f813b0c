#pragma once

#include <memory>
#include <string_view>

#include "band/BandObserver.h"
#include "platform/ObjectExporter.h"
#include "platform/Result.h"

namespace wrixel2::band {

class VirtualBand;

/// Shows a virtual band on the bus, and lets other programs handle it: properties for what it is
/// and measures, signals for what it was sent and does, methods for what happens to it.
class VirtualBandObject final : public BandObserver {
 public:
  static constexpr std::string_view kName = "org.corvale.wrixel2.VirtualBand";
  static constexpr std::string_view kPath = "/org/corvale/wrixel2/VirtualBand";

  /// Exports the band, which is borrowed and must live longer. Fails when another program has the
  /// name.
  static platform::Result<std::unique_ptr<VirtualBandObject>> create(
      VirtualBand& band, platform::ObjectExporter& exporter);
  VirtualBandObject(const VirtualBandObject&) = delete;
  VirtualBandObject& operator=(const VirtualBandObject&) = delete;
  ~VirtualBandObject() override;

  void bandDidReceiveWrite(const platform::UUID& service, const platform::UUID& characteristic,
                           platform::ByteView value, platform::WriteType type) override;
  void bandDidDisplay(std::string_view text, platform::ByteView icon) override;
  void bandDidVibrate(unsigned on, unsigned off, unsigned count) override;
  void bandDidChange(BandProperty property) override;

 private:
  VirtualBandObject(VirtualBand& band, std::unique_ptr<platform::ExportedObject> object);

  VirtualBand& band_;
  std::unique_ptr<platform::ExportedObject> object_;
};

}  // namespace wrixel2::band
