#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/Result.h"
#include "platform/linux/SdBus.h"

namespace wrixel2::bandradio {

/// The adapter that a band uses: switched on, and called what the band is called, because a host
/// that is connected reads its name from there. Afterwards it gets its own name back.
class BandAdapter {
 public:
  /// "hci1"; on the system bus, which is borrowed. The loop is served while bluetoothd is busy.
  static platform::Result<std::unique_ptr<BandAdapter>> take(
      const platform::linux::BusConnection& bus, std::string_view name, std::string_view bandName);

  BandAdapter(const BandAdapter&) = delete;
  BandAdapter& operator=(const BandAdapter&) = delete;
  ~BandAdapter();

  const std::string& path() const { return object_.path; }
  /// "00:11:22:33:44:55"
  const std::string& address() const { return address_; }

 private:
  BandAdapter(const platform::linux::BusConnection& bus, std::string path);

  platform::Result<std::string> text(const char* property) const;
  platform::ErrorOrNone switchOn() const;
  platform::ErrorOrNone rename(std::string_view name) const;

  const platform::linux::BusConnection& bus_;
  platform::linux::BusAddress object_;
  std::string address_;
  std::string ownName_;
};

}  // namespace wrixel2::bandradio
