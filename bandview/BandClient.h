#pragma once

#include <functional>
#include <optional>
#include <string_view>

#include "bandview/View.h"
#include "platform/linux/PropertyWatch.h"

namespace wrixel2::bandview {

/// What the virtual band on the bus reports.
struct BandEvents {
  std::function<void()> changed;  ///< what state() gives
  std::function<void(const Displayed& displayed)> displayed;
  /// Milliseconds, milliseconds and how often.
  std::function<void(unsigned on, unsigned off, unsigned count)> vibrated;
  /// The characteristic by its full UUID.
  std::function<void(std::string_view characteristic, platform::ByteView value)> written;
};

/// Follows the virtual band: while it is there, its state and what it does.
class BandClient {
 public:
  /// The bus outlives the client. No event comes before this has returned.
  BandClient(platform::linux::BusConnection& bus, BandEvents events);

  /// None while no band is on the bus, or before its first answer.
  const std::optional<BandState>& state() const { return state_; }

  /// Asks for all properties anew: the band does not announce that its clock runs.
  void refresh() { band_.refresh(); }

 private:
  BandEvents events_;
  std::optional<BandState> state_;
  platform::linux::PropertyWatch band_;
};

}  // namespace wrixel2::bandview
