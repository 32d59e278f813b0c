#pragma once

#include "platform/Bytes.h"
#include "platform/Error.h"
#include "platform/UUID.h"

namespace wrixel2::band {

/// The band's way onto the air: a virtual radio, or a real adapter's GATT server.
class BandRadio {
 public:
  virtual ~BandRadio() = default;

  /// Sends a value that the host has subscribed to. Only with a link.
  virtual void notify(const platform::UUID& service, const platform::UUID& characteristic,
                      const platform::Bytes& value) = 0;
  /// Ends the link as seen from the host: 7, the band has disconnected; 6, the link timed out. The
  /// band hears of it through linkDown(). An error where the radio cannot do that.
  virtual platform::ErrorOrNone endLink(long code) = 0;
  /// What isAdvertising() or isInRange() say has changed.
  virtual void presenceChanged() = 0;
};

}  // namespace wrixel2::band
