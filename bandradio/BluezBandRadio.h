#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "band/BandRadio.h"
#include "bandradio/Advertiser.h"
#include "bandradio/BluezGattServer.h"
#include "platform/Log.h"
#include "platform/RunLoop.h"

namespace wrixel2::bandradio {

class ManagementSocket;

/// A real adapter as the air of a virtual band: bluetoothd serves the band's characteristics, the
/// kernel sends its advertisement and tells of its link.
///
/// The band has one link at a time and advertises without one, as long as it is in range. A link
/// cannot be made to time out: it ends as the band's own doing.
class BluezBandRadio final : public band::BandRadio {
 public:
  /// Band and bus are borrowed; the adapter's number is that of its object's path and of the
  /// management socket.
  BluezBandRadio(band::VirtualBand& band, platform::linux::BusConnection& systemBus,
                 std::unique_ptr<ManagementSocket> management, const std::string& adapterPath,
                 platform::RunLoop& runLoop, platform::Log& log);
  BluezBandRadio(const BluezBandRadio&) = delete;
  BluezBandRadio& operator=(const BluezBandRadio&) = delete;
  /// Takes the band off the air and ends its link.
  ~BluezBandRadio() override;

  platform::ErrorOrNone start();

  void notify(const platform::UUID& service, const platform::UUID& characteristic,
              const platform::Bytes& value) override;
  platform::ErrorOrNone endLink(long code) override;
  void presenceChanged() override;

 private:
  /// The host's address and its type, as the management interface gives them.
  using Host = std::array<std::uint8_t, 7>;

  void handleEvent(std::uint16_t event, platform::ByteView parameters);
  void hostConnected(platform::ByteView parameters);
  void hostDisconnected(platform::ByteView parameters);
  void settingsChanged(platform::ByteView parameters);
  void linkEnded();
  void disconnect();

  band::VirtualBand& band_;
  platform::Logger logger_;
  std::unique_ptr<ManagementSocket> management_;
  Advertiser advertiser_;
  BluezGattServer server_;
  std::optional<Host> host_;
  bool isPowered_ = true;
};

}  // namespace wrixel2::bandradio
