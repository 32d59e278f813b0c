#pragma once

#include <cstdint>
#include <string_view>

#include "platform/Bytes.h"
#include "platform/Peripheral.h"
#include "platform/UUID.h"

namespace wrixel2::band {

/// What of a band's state has changed.
enum class BandProperty : std::uint8_t {
  link,
  pairingKey,
  batteryLevel,
  steps,
  distance,
  calories,
  heartRate,
  isInRange
};

/// Watches a virtual band. Every operation is optional.
class BandObserver {
 public:
  virtual ~BandObserver() = default;

  /// Any write that reached the band, before it acts on it, refused ones included.
  virtual void bandDidReceiveWrite(const platform::UUID& /*service*/,
                                   const platform::UUID& /*characteristic*/,
                                   platform::ByteView /*value*/, platform::WriteType /*type*/) {}
  /// What the screen shows: UTF-8 text (empty for an icon alone) and the icon's 1 to 3 bytes.
  virtual void bandDidDisplay(std::string_view /*text*/, platform::ByteView /*icon*/) {}
  /// A vibration: milliseconds on, milliseconds off, how many times.
  virtual void bandDidVibrate(unsigned /*on*/, unsigned /*off*/, unsigned /*count*/) {}
  virtual void bandDidChange(BandProperty /*property*/) {}

 protected:
  BandObserver() = default;
  BandObserver(const BandObserver&) = default;
  BandObserver& operator=(const BandObserver&) = default;
};

}  // namespace wrixel2::band
