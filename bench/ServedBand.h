#pragma once

#include <memory>

#include "bench/BandOnBus.h"
#include "bench/Extent.h"
#include "bench/Session.h"

namespace wrixel2::bench {

/// The daemon in connected mode, in a session of its own, with a band on the air.
class ServedBand {
 public:
  enum class Place : std::uint8_t { inRange, outOfRange };

  /// Returns when the band is connected and initialized, or, out of range, looked for.
  ServedBand(platform::linux::LinuxRunLoop& loop, platform::Log& log,
             const platform::TimeZone& zone, const Programs& programs, Place place);

  Session& session() { return session_; }
  BandOnBus& band() { return band_; }
  Process& daemon() { return *daemon_; }

 private:
  Session session_;
  BandOnBus band_;
  std::unique_ptr<Process> daemon_;
};

}  // namespace wrixel2::bench
